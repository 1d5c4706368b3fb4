#include "target_tracker.h"

#include "clock.h"
#include "geometry.h"
#include "log.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

// The fit tests compare the plain difference of the two returned angles; both start at 0
// so that four equal angles count as width 0.
bool tracker_span_fits(float a, float b, float c, float d)
{
        std::array<float, 4> angles{a, b, c, d};
        float start = 0.0f;
        float end = 0.0f;
        circular_span(angles.data(), angles.size(), &start, &end);
        return std::fabs(end - start) < tracker_max_group_width;
}

} // namespace

void TrackedTarget::set_position(float new_pan, float new_tilt, float new_width)
{
        pan = new_pan;
        tilt = new_tilt;
        width = new_width;
        left_edge = pan - width * 0.5f;
        right_edge = pan + width * 0.5f;
}

void TargetGroup::recompute(std::vector<float> &scratch)
{
        scratch.clear();
        for (const auto &target : targets) {
                scratch.push_back(target->left_edge);
                scratch.push_back(target->right_edge);
        }
        circular_span(scratch.data(), scratch.size(), &span_start, &span_end);
        centre_pan = angle_midpoint(span_start, span_end);
        if (targets.empty()) {
                centre_tilt = 0.0f;
        } else {
                float lowest = targets.front()->tilt;
                float highest = lowest;
                for (const auto &target : targets) {
                        lowest = std::min(lowest, target->tilt);
                        highest = std::max(highest, target->tilt);
                }
                centre_tilt = (highest + lowest) * 0.5f;
        }
        width = std::fabs(angle_difference(span_start, span_end));
        stale = false;
}

void TargetGroup::recompute_if_stale(std::vector<float> &scratch)
{
        if (stale)
                recompute(scratch);
}

bool TargetGroup::fits(const TrackedTarget &target) const
{
        return tracker_span_fits(span_start, span_end, target.left_edge, target.right_edge);
}

void TargetGroup::set_followed(bool on, int64_t now)
{
        if (followed == on)
                return;
        followed = on;
        (on ? follow_start : unfollow_time) = now;
}

bool TargetGroup::fits(const TargetGroup &other) const
{
        return tracker_span_fits(span_start, span_end, other.span_start, other.span_end);
}

TrackedTarget *TargetTracker::find_target(uint32_t source, uint32_t object, TargetGroup **group)
{
        for (const auto &candidate : groups_) {
                for (const auto &target : candidate->targets) {
                        if (target->source == source && target->object == object) {
                                *group = candidate.get();
                                return target.get();
                        }
                }
        }
        return nullptr;
}

void TargetTracker::recompute_stale_groups()
{
        for (const auto &group : groups_)
                group->recompute_if_stale(scratch_);
}

const std::vector<std::unique_ptr<TargetGroup>> &TargetTracker::groups()
{
        const std::lock_guard lock(mutex_);
        recompute_stale_groups();
        return groups_;
}

void TargetTracker::insert_target(std::unique_ptr<TrackedTarget> target, int64_t now)
{
        recompute_stale_groups();
        for (const auto &group : groups_) {
                if (group->fits(*target)) {
                        group->targets.push_back(std::move(target));
                        group->recompute(scratch_);
                        return;
                }
        }
        auto group = std::make_unique<TargetGroup>();
        group->unfollow_time = now;
        group->targets.push_back(std::move(target));
        group->recompute(scratch_);
        groups_.push_back(std::move(group));
}

void TargetTracker::delete_group(size_t index)
{
        // A new group may later take the same address: never compare against a deleted one.
        if (groups_[index].get() == followed_group_)
                followed_group_ = nullptr;
        groups_.erase(groups_.begin() + static_cast<std::ptrdiff_t>(index));
}

void TargetTracker::update_target(uint32_t source, uint32_t object, float pan, float tilt, float width)
{
        // A NaN would break the ordering that the span search sorts by.
        if (!std::isfinite(pan) || !std::isfinite(tilt) || !std::isfinite(width)) {
                log_debug("%sIgnoring target %u/%u at a non-finite position", source, object);
                return;
        }
        const std::lock_guard lock(mutex_);
        const int64_t now = clock_now_us();
        TargetGroup *group = nullptr;
        TrackedTarget *target = find_target(source, object, &group);
        if (target) {
                // Membership is checked again by the next refresh, not here. A target whose
                // edges meet may leave every edge equal: what waited is recomputed before it.
                if (!TrackedTarget::edges_apart(pan, width))
                        group->recompute_if_stale(scratch_);
                target->set_position(pan, tilt, width);
                target->last_seen = now;
                group->stale = true;
                return;
        }
        auto created = std::make_unique<TrackedTarget>();
        created->source = source;
        created->object = object;
        created->set_position(pan, tilt, width);
        created->last_seen = now;
        insert_target(std::move(created), now);
}

void TargetTracker::remove_target(uint32_t source, uint32_t object)
{
        const std::lock_guard lock(mutex_);
        TargetGroup *group = nullptr;
        TrackedTarget *target = find_target(source, object, &group);
        if (target)
                target->present = false;
}

void TargetTracker::expire_and_rotate(int64_t now)
{
        size_t index = 0;
        while (index < groups_.size()) {
                TargetGroup &group = *groups_[index];
                // The members left may have every edge equal: what waited is recomputed before.
                group.recompute_if_stale(scratch_);
                const size_t expired = std::erase_if(group.targets, [now](const auto &target) {
                        const int64_t age_ms = (now - target->last_seen) / 1000;
                        return !target->present && age_ms > tracker_expiry_ms;
                });
                if (expired)
                        group.recompute(scratch_);

                // A watch ends after the guard tour time when another group waits.
                if (guard_tour_enabled() && group.followed && group.follow_start != 0 &&
                    clock_seconds_between(group.follow_start, now) > guard_tour_time() && groups_.size() >= 2)
                        group.set_followed(false, now);

                if (group.targets.empty())
                        delete_group(index);
                else
                        index++;
        }
}

void TargetTracker::split_wide_groups(int64_t now)
{
        std::vector<std::unique_ptr<TrackedTarget>> loose;
        size_t index = 0;
        while (index < groups_.size()) {
                TargetGroup &group = *groups_[index];
                if (group.width > tracker_max_group_width && group.targets.size() >= 2) {
                        for (auto &target : group.targets)
                                loose.push_back(std::move(target));
                        delete_group(index);
                } else {
                        index++;
                }
        }
        for (auto &target : loose)
                insert_target(std::move(target), now);
}

void TargetTracker::merge_groups()
{
        for (size_t first = 0; first + 1 < groups_.size(); first++) {
                TargetGroup &absorbing = *groups_[first];
                size_t later = first + 1;
                while (later < groups_.size()) {
                        TargetGroup &absorbed = *groups_[later];
                        if (!absorbing.fits(absorbed)) {
                                later++;
                                continue;
                        }
                        // One recompute after all the moves ends where one after each move would.
                        for (auto &target : absorbed.targets)
                                absorbing.targets.push_back(std::move(target));
                        absorbing.recompute(scratch_);
                        delete_group(later);
                }
        }
}

void TargetTracker::refresh()
{
        const std::lock_guard lock(mutex_);
        const int64_t now = clock_now_us();
        expire_and_rotate(now);
        split_wide_groups(now);
        merge_groups();
}

TargetGroup *TargetTracker::select_nearest(float camera_pan, float camera_tilt)
{
        float best = 360.0f;
        TargetGroup *candidate = nullptr;
        for (const auto &group : groups_) {
                if (group.get() == followed_group_)
                        return followed_group_;
                const float d =
                        angular_distance(group->centre_pan, group->centre_tilt, camera_pan, camera_tilt);
                if (d < best) {
                        best = d;
                        candidate = group.get();
                }
        }
        followed_group_ = candidate;
        return candidate;
}

TargetGroup *TargetTracker::select_guard_tour(int64_t now)
{
        // Followed first, then the group unwatched longest. Equal waits keep their list order.
        std::stable_sort(groups_.begin(), groups_.end(),
                         [](const std::unique_ptr<TargetGroup> &a, const std::unique_ptr<TargetGroup> &b) {
                                 if (a->followed != b->followed)
                                         return a->followed;
                                 return a->unfollow_time < b->unfollow_time;
                         });
        TargetGroup *first = groups_.front().get();
        for (const auto &group : groups_)
                group->set_followed(group.get() == first, now);
        return first;
}

bool TargetTracker::get_target(float camera_pan, float camera_tilt, float *pan, float *tilt, float *width)
{
        const std::lock_guard lock(mutex_);
        recompute_stale_groups();
        TargetGroup *group = nullptr;
        if (guard_tour_enabled()) {
                if (groups_.empty())
                        return false;
                group = select_guard_tour(clock_now_us());
        } else {
                group = select_nearest(camera_pan, camera_tilt);
        }
        if (!group)
                return false;
        *pan = group->centre_pan;
        *tilt = group->centre_tilt;
        *width = group->width;
        return true;
}
