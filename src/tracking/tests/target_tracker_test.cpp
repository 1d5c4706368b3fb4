#include "clock.h"
#include "target_tracker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <utility>

namespace {

constexpr int64_t ms = 1000;

class Tracker : public ::testing::Test {
protected:
        void SetUp() override { clock_use_manual(1'000'000'000); }
        void TearDown() override { clock_use_real(); }

        size_t group_count() { return tracker.groups().size(); }
        const TargetGroup &group(size_t i) { return *tracker.groups().at(i); }
        void advance(int64_t us)
        {
                clock_advance_us(us);
                tracker.refresh();
        }
        float followed_pan(float camera_pan = 0)
        {
                float pan = -1, tilt = -1, width = -1;
                EXPECT_TRUE(tracker.get_target(camera_pan, 0, &pan, &tilt, &width));
                return pan;
        }

        TargetTracker tracker;
};

} // namespace

TEST_F(Tracker, ClustersTargetsIntoGroupsNoWiderThanTheLimit)
{
        tracker.update_target(1, 1, 0, -2, 4);
        tracker.update_target(1, 2, 30, -6, 4);
        ASSERT_EQ(group_count(), 1u);
        const TargetGroup &pair = group(0);
        EXPECT_EQ((std::vector{pair.span_start, pair.width, pair.centre_pan, pair.centre_tilt}),
                  (std::vector{-2.0f, 34.0f, 15.0f, -4.0f}));
        // 48..52 would make the span 54 wide: a group of its own. Same object id, other source.
        tracker.update_target(2, 2, 50, 0, 4);
        // A group across the seam.
        tracker.update_target(1, 3, -80, 0, 4);
        tracker.update_target(1, 4, -60, 0, 4);
        ASSERT_EQ(group_count(), 3u);
        EXPECT_EQ(group(1).centre_pan, 50.0f);
        EXPECT_EQ(group(2).centre_pan, 290.0f);
        // A newcomer is measured against where a moved target's group is now, not where it was.
        tracker.update_target(2, 2, 150, 0, 4);
        tracker.update_target(1, 5, 50, 0, 4);
        EXPECT_EQ(group_count(), 4u);
        // A position that is not finite is no target at all.
        for (const float bad : {NAN, INFINITY})
                for (const auto &[pan, tilt, width] : {std::tuple{bad, 0.0f, 4.0f}, {0.0f, bad, 4.0f}, {0.0f, 0.0f, bad}})
                        tracker.update_target(1, 9, pan, tilt, width);
        EXPECT_EQ(group_count(), 4u);
}

TEST_F(Tracker, RefreshSplitsWideGroupsAndMergesGroupsThatFitTogether)
{
        for (const auto &[object, pan] : {std::pair{1u, 0.0f}, {2u, 30.0f}, {3u, 80.0f}})
                tracker.update_target(1, object, pan, 0, 4);
        // The pair drifts apart to 43 wide; updates do not re-check membership.
        tracker.update_target(1, 2, 39, 0, 4);
        ASSERT_EQ(group_count(), 2u);
        EXPECT_EQ(group(0).width, 43.0f);
        // Re-inserted in order, neither target fits the group at 80 (84 and 45 wide) nor the
        // other (43 wide): each starts a group at the end.
        tracker.refresh();
        ASSERT_EQ(group_count(), 3u);
        EXPECT_EQ((std::vector{group(0).centre_pan, group(1).centre_pan, group(2).centre_pan}),
                  (std::vector{80.0f, 0.0f, 39.0f}));

        // A combined span of 41.9: the later group merges into the earlier.
        tracker.update_target(1, 3, 76.9f, 0, 4);
        tracker.refresh();
        ASSERT_EQ(group_count(), 2u);
        ASSERT_EQ(group(0).targets.size(), 2u);
        EXPECT_EQ(group(0).targets[1]->object, 2u);
        EXPECT_NEAR(group(0).width, 41.9f, 1e-4);
        // The last two groups are a pair as well.
        tracker.update_target(1, 4, 200, 0, 4);
        tracker.update_target(1, 4, 30, 0, 4);
        tracker.refresh();
        EXPECT_EQ(group_count(), 2u);
}

TEST_F(Tracker, FortyTwoDegreesIsTooWideToJoinButNotTooWideToStay)
{
        tracker.update_target(1, 1, 0, 0, 4);  // -2..2
        tracker.update_target(1, 2, 38, 0, 4); // 36..40: 42 with the first, so a group of its own
        tracker.update_target(1, 3, 30, 0, 4);
        ASSERT_EQ(group_count(), 2u);
        tracker.update_target(1, 3, 38, 0, 4);
        tracker.refresh();
        ASSERT_EQ(group_count(), 2u) << "neither split nor merged";
        EXPECT_EQ(group(0).width, 42.0f);
        EXPECT_EQ(group(0).targets.size(), 2u);
}

// With every edge equal a group keeps the span it had after the change before, also when
// that change has not been read yet.
TEST_F(Tracker, EdgesThatAllMeetKeepTheSpanOfTheChangeBefore)
{
        tracker.update_target(1, 1, 10, 0, 4);
        tracker.update_target(1, 1, 50, 0, 4);
        tracker.update_target(1, 1, 60, 0, 0);
        EXPECT_EQ(followed_pan(), 50.0f);
        // Left so by an expiry: the span of 62..70, not of 60..70.
        tracker.update_target(1, 2, 70, 0, 0);
        tracker.update_target(1, 1, 66, 0, 8);
        tracker.remove_target(1, 1);
        advance(1001 * ms);
        EXPECT_EQ(followed_pan(), 66.0f);
}

TEST_F(Tracker, GoneTargetsExpireJustAfterASecondWithoutUpdates)
{
        tracker.update_target(1, 1, 0, 0, 4);
        tracker.update_target(1, 2, 60, 0, 4);
        tracker.update_target(1, 3, 10, 0, 4);
        tracker.remove_target(1, 2);
        tracker.remove_target(1, 3);
        // An update keeps a gone target alive.
        clock_advance_us(900 * ms);
        tracker.update_target(1, 2, 60, 0, 4);
        tracker.update_target(1, 3, 10, 0, 4);
        advance(1000 * ms + 999);
        EXPECT_EQ(group_count(), 2u);
        advance(1);
        ASSERT_EQ(group_count(), 1u);
        EXPECT_EQ(std::tuple(group(0).targets.size(), group(0).targets[0]->object, group(0).width),
                  std::tuple(1u, 1u, 4.0f)) << "the span shrinks with the members";
        // A target never reported gone stays however old it gets.
        advance(3600'000 * ms);
        EXPECT_EQ(group_count(), 1u);
}

TEST_F(Tracker, FollowsTheSameGroupUntilItGoesThenTheNearest)
{
        tracker.update_target(1, 1, 60, 0, 4);
        tracker.update_target(1, 2, -60, 0, 4);
        EXPECT_EQ(followed_pan(0), 60.0f) << "the first of equally near groups";
        tracker.update_target(1, 3, 0, 0, 4);
        tracker.update_target(1, 4, 150, 0, 4);
        tracker.remove_target(1, 4);
        advance(1001 * ms);
        EXPECT_EQ(followed_pan(0), 60.0f) << "neither a nearer group nor the loss of another takes over";
        tracker.remove_target(1, 1);
        advance(1001 * ms);
        // The nearest of the rest, measured across the seam; then it sticks.
        EXPECT_EQ(followed_pan(345), 0.0f);
        EXPECT_EQ(followed_pan(300), 0.0f);
}

TEST_F(Tracker, GuardTourWatchesEachGroupInTurn)
{
        float pan, tilt, width;
        tracker.set_guard_tour_enabled(true);
        EXPECT_FALSE(tracker.get_target(0, 0, &pan, &tilt, &width)) << "nothing to watch";
        tracker.set_guard_tour_enabled(false);
        tracker.update_target(1, 1, 0, 0, 4);
        EXPECT_EQ(followed_pan(), 0.0f);
        tracker.set_guard_tour_enabled(true);
        EXPECT_EQ(followed_pan(), 0.0f);
        advance(60'000 * ms);
        EXPECT_TRUE(group(0).followed) << "a single group never rotates";

        clock_advance_us(100 * ms);
        tracker.update_target(1, 2, 80, 0, 4);
        clock_advance_us(100 * ms);
        tracker.update_target(1, 3, -80, 0, 4);
        // A is rotated out; the group that has waited longest comes next: B, then C, then A.
        advance(100 * ms);
        EXPECT_EQ(followed_pan(), 80.0f);
        advance(4000 * ms);
        EXPECT_EQ(followed_pan(), 80.0f);
        advance(1);
        EXPECT_EQ(followed_pan(), 280.0f);
        advance(4001 * ms);
        EXPECT_EQ(followed_pan(), 0.0f);
        // Two groups take turns as well.
        tracker.remove_target(1, 2);
        advance(1001 * ms);
        advance(3000 * ms);
        EXPECT_EQ(followed_pan(), 280.0f);

        // Off again: the group followed before the tour, wherever the camera points.
        tracker.set_guard_tour_enabled(false);
        EXPECT_EQ(followed_pan(80), 0.0f);
}
