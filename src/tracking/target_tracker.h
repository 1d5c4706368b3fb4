// Clusters the targets in camera angles into groups that fit one view and chooses the group
// the camera follows, directly or, with the guard tour, each group in turn.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

// Groups are never wider than this many degrees of pan.
constexpr float tracker_max_group_width = 42.0f;
// A target reported gone is deleted once it has not been updated for longer than this.
constexpr int64_t tracker_expiry_ms = 1000;

struct TrackedTarget {
        uint32_t source = 0;
        uint32_t object = 0;
        float pan = 0.0f;
        float tilt = 0.0f;
        float width = 0.0f;
        float left_edge = 0.0f;
        float right_edge = 0.0f;
        int64_t last_seen = 0;
        bool present = true;

        void set_position(float new_pan, float new_tilt, float new_width);
        // Whether a target at pan with this width has a left edge below its right one.
        static bool edges_apart(float pan, float width) { return pan - width * 0.5f < pan + width * 0.5f; }
};

struct TargetGroup {
        std::vector<std::unique_ptr<TrackedTarget>> targets;
        float centre_pan = 0.0f;
        float centre_tilt = 0.0f;
        float width = 0.0f;
        float span_start = 0.0f;
        float span_end = 0.0f;
        bool followed = false;
        int64_t follow_start = 0;
        int64_t unfollow_time = 0;
        // A member moved since the last recompute. Recomputing is a function of the members
        // alone unless every edge is equal (then the span before stays), so it may wait until
        // the span is next read, or until a change that may leave every edge equal.
        bool stale = false;

        // Span, centre and width from the members; scratch is reused between calls.
        void recompute(std::vector<float> &scratch);
        void recompute_if_stale(std::vector<float> &scratch);
        bool fits(const TrackedTarget &target) const;
        bool fits(const TargetGroup &other) const;
        // Starts or stops the guard tour's watch; the time of the change is kept.
        void set_followed(bool on, int64_t now);
};

class TargetTracker {
        static constexpr auto relaxed = std::memory_order_relaxed;

public:
        TargetTracker() = default;
        TargetTracker(const TargetTracker &) = delete;
        TargetTracker &operator=(const TargetTracker &) = delete;

        void update_target(uint32_t source, uint32_t object, float pan, float tilt, float width);
        void remove_target(uint32_t source, uint32_t object);
        void refresh();
        // False, with the outputs untouched, when there is no group.
        bool get_target(float camera_pan, float camera_tilt, float *pan, float *tilt, float *width);

        void set_guard_tour_enabled(bool enabled) { guard_tour_enabled_.store(enabled, relaxed); }
        bool guard_tour_enabled() const { return guard_tour_enabled_.load(relaxed); }
        void set_guard_tour_time(float seconds) { guard_tour_time_.store(seconds, relaxed); }
        float guard_tour_time() const { return guard_tour_time_.load(relaxed); }

        // For inspection by tests and the benchmark: the groups, brought up to date. The
        // reference is read without the lock, so only from the thread that drives the tracker.
        const std::vector<std::unique_ptr<TargetGroup>> &groups();

private:
        TrackedTarget *find_target(uint32_t source, uint32_t object, TargetGroup **group);
        void insert_target(std::unique_ptr<TrackedTarget> target, int64_t now);
        void delete_group(size_t index);
        void recompute_stale_groups();
        void expire_and_rotate(int64_t now);
        void split_wide_groups(int64_t now);
        void merge_groups();
        TargetGroup *select_nearest(float camera_pan, float camera_tilt);
        TargetGroup *select_guard_tour(int64_t now);

        std::vector<std::unique_ptr<TargetGroup>> groups_;
        TargetGroup *followed_group_ = nullptr;
        std::mutex mutex_;
        std::vector<float> scratch_;
        // Written by the main loop only; atomic so that a reader elsewhere is never torn.
        std::atomic<bool> guard_tour_enabled_{false};
        std::atomic<float> guard_tour_time_{4.0f};
};
