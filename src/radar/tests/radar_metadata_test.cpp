#include "radar_metadata.h"

#include "clock.h"
#include "exclude_areas.h"
#include "child_process.h"
#include "in_process_provider.h"
#include "log_capture.h"
#include "settings.h"
#include "target_tracker.h"
#include "temp_dir.h"
#include "tracking.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <thread>

namespace {

const std::vector<std::string> unit_classes{"Raw", "RawAssociated", "Unknown", "Human", "Vehicle", "SmallObject"};
constexpr uint32_t human = 3, vehicle = 4, small_object = 5;

std::map<uint32_t, TrackedTarget> radar_targets()
{
        std::map<uint32_t, TrackedTarget> out;
        for (const auto &group : get_target_tracker()->groups())
                for (const auto &t : group->targets)
                        if (t->source == 1)
                                out[t->object] = *t;
        return out;
}

// A complete object; tests clear the fields they want missing. The zones see the point (x, y).
Object *add_object(Scene &scene, uint32_t id, float azimuth, uint32_t class_id = human, float x = 0.0f, float y = 0.5f)
{
        Object *object = scene.add_objects();
        object->set_id(id);
        object->mutable_bounding_box()->set_left(x);
        object->mutable_bounding_box()->set_top(y);
        object->mutable_position()->set_x(10.0f);
        object->mutable_position()->set_y(azimuth);
        object->mutable_labels()->add_labels()->set_id(class_id);
        return object;
}

Label *first_label(Object *object)
{
        return object->mutable_labels()->mutable_labels(0);
}

// Hands over a malloc'ed copy, as the subscriber does.
void handle(const std::vector<uint8_t> &bytes)
{
        auto *frame = static_cast<uint8_t *>(malloc(bytes.size()));
        memcpy(frame, bytes.data(), bytes.size());
        radar_metadata_handle_scene(frame);
}

void handle(const Scene &scene)
{
        handle(scene_publisher_frame(scene));
}

// The one exclusion zone, when on: a square around (0, 0.8).
void set_zone(bool on)
{
        exclude_areas_clear();
        g_autoptr(GVariant) ring = g_variant_ref_sink(g_variant_new_parsed("[(-0.2, 0.6), (0.2, 0.6), (0.2, 1.0), (-0.2, 1.0)]"));
        if (on)
                exclude_areas_add(1, ring);
        exclude_areas_publish();
}

class RadarMetadataTest : public ::testing::Test {
protected:
        void SetUp() override
        {
                clock_use_manual(1000000);
                settings_set_mounting_height(4.0);
                settings_set_tilt_offset(0.0);
                settings_set_object_types(FALSE, TRUE, TRUE, FALSE);
                tracking_core_attach(nullptr, &tracker_); // the scene handler needs no controller
                exclude_areas_init();
                g_setenv("RADAR_SCENE_PROVIDER_SOCKET", dir_.file("provider.sock").c_str(), TRUE);
        }
        void TearDown() override
        {
                radar_metadata_cleanup();
                provider_.reset();
                exclude_areas_cleanup();
                tracking_core_attach(nullptr, nullptr);
                clock_use_real();
        }
        void start(const std::vector<std::string> &classes = unit_classes)
        {
                provider_ = std::make_unique<InProcessProvider>(g_getenv("RADAR_SCENE_PROVIDER_SOCKET"), classes);
                ASSERT_TRUE(provider_->ok()) << provider_->error();
                ASSERT_TRUE(radar_metadata_setup());
                log_.clear();
        }

        LogCapture log_;
        std::unique_ptr<InProcessProvider> provider_;
        TargetTracker tracker_;
        TempDir dir_{"intake"};
};

TEST_F(RadarMetadataTest, ClassMaskComesFromTheNamesTheRadarReports)
{
        start({"raw"}); // a single name, unknown (bit 2): the case counts
        EXPECT_EQ(radar_metadata_get_object_classes(), 0x04u);
        radar_metadata_cleanup();
        provider_.reset();

        // Without a provider there are no classes: every labelled object is an error.
        ASSERT_TRUE(radar_metadata_setup());
        EXPECT_EQ(radar_metadata_get_object_classes(), 0u);
        Scene scene;
        add_object(scene, 1, 20.0f, 0);
        handle(scene);
        EXPECT_EQ(log_.lines(), Lines{"ERROR: got object with classification error"});
}

// Filter order: the zone test first, then position and class, then the class switches.
// The sweep removes whatever the latest scene did not take.
TEST_F(RadarMetadataTest, FiltersSkipSilentlyAndTheSweepRemovesWhatTheLatestSceneDidNotTake)
{
        start();
        set_zone(true);
        Scene first;
        // A name long enough that the frame length needs three of its four bytes.
        first_label(add_object(first, 1, 20.0f))->set_name(std::string(70000, 'x'));
        add_object(first, 0, 25.0f, 0); // id 0 and class index 0 are values, not absences
        add_object(first, 2, 30.0f, human, 0.0f, 0.8f)->clear_position(); // excluded: no message
        add_object(first, 3, 40.0f, small_object);                         // the small switch is off
        add_object(first, 4, 50.0f, 1);                                    // RawAssociated is always followed
        add_object(first, 5, 55.0f, vehicle);
        add_object(first, 8, 60.0f);
        handle(first);
        auto targets = radar_targets();
        ASSERT_EQ(targets.size(), 5u);
        // Range 10 at mounting height 4: azimuth becomes pan, tilt from the range.
        EXPECT_FLOAT_EQ(targets.at(1).pan, 20.0f);
        EXPECT_NEAR(targets.at(1).tilt, -16.699245f, 1e-4f);

        // 1 listed twice (the later position wins), 4 moved into the zone, 8 gone,
        // 5 still there but no longer followed once the vehicle switch is off.
        settings_set_object_types(FALSE, TRUE, FALSE, FALSE);
        Scene second;
        add_object(second, 1, 11.0f);
        add_object(second, 4, 50.0f, 1, 0.0f, 0.8f);
        add_object(second, 1, 12.0f);
        add_object(second, 5, 55.0f, vehicle);
        handle(second);
        targets = radar_targets();
        EXPECT_TRUE(targets.at(1).present);
        EXPECT_FLOAT_EQ(targets.at(1).pan, 12.0f);
        EXPECT_FALSE(targets.at(0).present || targets.at(4).present || targets.at(5).present || targets.at(8).present);
        handle(second);
        EXPECT_TRUE(radar_targets().at(1).present) << "an object seen in scene after scene stays";

        Scene empty;
        empty.set_time(1);
        handle(empty);
        EXPECT_FALSE(radar_targets().at(1).present);
        EXPECT_TRUE(log_.matching("ERROR").empty());
}

// The objects before a faulty one are taken; the first fault in check order is reported. A
// rejected frame sweeps every known object. Fresh ids per case: a target gone stays gone.
TEST_F(RadarMetadataTest, FaultsAreLoggedOnceAndEndTheScene)
{
        start();
        const std::string no_class = "ERROR: got object without classification";
        const std::string bad_class = "ERROR: got object with classification error";
        const std::string unparsed = "WARNING: Failed to read deserialize scene from provider";
        Scene one;
        add_object(one, 1, 20.0f);
        std::vector<uint8_t> uncounted = scene_publisher_frame(one);
        uncounted[3] -= 4; // a writer that forgot that the length counts itself cuts the object
        const std::vector<std::tuple<void (*)(Object *), std::vector<uint8_t>, std::string>> cases = {
                {[](Object *o) { o->clear_id(), o->clear_bounding_box(); }, {}, "ERROR: got object without id"},
                {[](Object *o) { o->clear_bounding_box(), o->clear_position(); }, {}, "ERROR: got scene without a box"},
                {[](Object *o) { o->clear_position(), o->clear_labels(); }, {}, "ERROR: got scene without a polar position"},
                {[](Object *o) { o->clear_labels(); }, {}, no_class},
                {[](Object *o) { o->mutable_labels()->clear_labels(); }, {}, no_class},
                // Only the first label counts; its id is a signed index below the number of names.
                {[](Object *o) { first_label(o)->clear_id(), o->mutable_labels()->add_labels()->set_id(3); }, {}, no_class},
                {[](Object *o) { first_label(o)->set_id(6); }, {}, bad_class},
                {[](Object *o) { first_label(o)->set_id(0x80000000); }, {}, bad_class},
                {nullptr, {0, 0, 0, 4}, "WARNING: Got invalid serialized scene size 4 from provider"},
                {nullptr, {0, 0, 0, 5, 0x08}, unparsed}, // a tag without its value
                {nullptr, uncounted, unparsed},
        };
        uint32_t id = 0;
        for (const auto &[spoil, frame, line] : cases) {
                id += 10;
                Scene scene;
                add_object(scene, id, 20.0f);
                handle(scene);
                if (spoil)
                        spoil(add_object(scene, id + 1, 30.0f));
                add_object(scene, id + 2, 40.0f);
                log_.clear();
                handle(spoil ? scene_publisher_frame(scene) : frame);
                EXPECT_EQ(log_.lines(), Lines{line});
                const auto targets = radar_targets();
                EXPECT_EQ(targets.at(id).present, spoil ? 1u : 0u) << line;
                EXPECT_FALSE(targets.count(id + 1) || targets.count(id + 2)) << line;
        }
}

// Scenes arrive on the subscriber's thread while the main loop rebuilds the zones, reads the class
// mask, switches classes and runs the tracker (for ThreadSanitizer); rejected frames mark the stream.
TEST_F(RadarMetadataTest, ScenesFlowWhileZonesAreRebuiltAndAgainAfterOffOnAndAProviderRestart)
{
        const uint8_t marker[] = {0, 0, 0, 4};
        auto markers_reach = [&](size_t n) {
                poll_until([&] { return log_.matching("size 4").size() >= n; }, 10, 1);
                return log_.matching("size 4").size() == n;
        };
        start();
        radar_metadata_set_enabled(FALSE); // never enabled: nothing to undo
        radar_metadata_request_enabled(TRUE);
        EXPECT_EQ(provider_->publisher().accepted(), 1u); // deferred: only set-up's query so far
        while (g_main_context_iteration(nullptr, FALSE))
                ;
        radar_metadata_set_enabled(TRUE); // a second subscribe would log an error
        ASSERT_TRUE(provider_->publisher().wait_for_accepted(2, 10000));

        // The socket queues 10 packets, so each batch waits for its marker.
        constexpr size_t batches = 25;
        std::atomic<bool> finished{false};
        std::thread provider_side([&] {
                for (size_t b = 1; b <= batches; b++) {
                        for (uint32_t i = 0; i < 8; i++) {
                                Scene scene;
                                for (uint32_t id = 0; id < 8; id++)
                                        add_object(scene, id + i % 2, 5.0f * static_cast<float>(id),
                                                   id % 2 ? human : vehicle, 0.1f * static_cast<float>(id) - 0.4f, 0.8f);
                                provider_->publisher().publish_scene(scene);
                        }
                        provider_->publisher().publish(marker, sizeof(marker));
                        if (!markers_reach(b))
                                break;
                }
                finished = true;
        });
        for (int i = 0; !finished; i++) {
                set_zone(i % 2);
                settings_set_object_types(FALSE, TRUE, i % 3 != 0, FALSE);
                EXPECT_EQ(radar_metadata_get_object_classes(), 0x3Fu);
                clock_advance_us(100000);
                tracker_refresh();
                float pan, tilt, width;
                tracker_get_target(&pan, &tilt, &width, 0.0f, 0.0f);
        }
        provider_side.join();
        EXPECT_TRUE(markers_reach(batches));

        radar_metadata_request_enabled(FALSE);
        while (g_main_context_iteration(nullptr, FALSE))
                ;
        radar_metadata_set_enabled(TRUE);
        ASSERT_TRUE(provider_->publisher().wait_for_accepted(3, 10000));
        provider_->publisher().publish(marker, sizeof(marker));
        EXPECT_TRUE(markers_reach(batches + 1)) << "switched off and on again";
        provider_.reset();
        provider_ = std::make_unique<InProcessProvider>(g_getenv("RADAR_SCENE_PROVIDER_SOCKET"), unit_classes);
        ASSERT_TRUE(provider_->publisher().wait_for_accepted(1, 10000)) << "no reconnect";
        provider_->publisher().publish(marker, sizeof(marker));
        EXPECT_TRUE(markers_reach(batches + 2));

        radar_metadata_cleanup(); // unsubscribes
        EXPECT_EQ(log_.matching("ERROR").size(), 0u);
}

} // namespace
