#include "scene_frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// A frame whose length field counts itself, as the provider writes it.
Bytes frame(const Scene &scene, uint32_t extra_length = 4)
{
        const std::string message = scene.SerializeAsString();
        const uint32_t n = static_cast<uint32_t>(message.size()) + extra_length;
        Bytes out = {static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8),
                     static_cast<uint8_t>(n)};
        out.insert(out.end(), message.begin(), message.end());
        return out;
}

// An object with every field the checks ask for, each present with the value 0.
Scene scene_of_zeros()
{
        Scene scene;
        Object *object = scene.add_objects();
        object->set_id(0);
        object->mutable_bounding_box();
        object->mutable_position();
        object->mutable_labels()->add_labels()->set_id(0);
        return scene;
}

TEST(SceneFrame, LengthCountsItselfAndShortFramesAreRejectedBeforeParsing)
{
        Scene named = scene_of_zeros();
        named.mutable_objects(0)->mutable_labels()->mutable_labels(0)->set_name("\xC3\xA9");
        Scene large = named; // a length that needs three of the four bytes
        large.mutable_objects(0)->mutable_labels()->mutable_labels(0)->set_name(std::string(70000, 'x'));
        Bytes bad_utf8 = frame(named);
        *std::find(bad_utf8.begin(), bad_utf8.end(), 0xA9) = 0x28; // "\xC3\x28" is not UTF-8
        const std::vector<std::pair<Bytes, SceneFrameStatus>> cases = {
                {{0, 0, 0, 0}, SceneFrameStatus::bad_size},
                {{0, 0, 0, 4}, SceneFrameStatus::bad_size},
                {{0, 0, 0, 5, 0x08}, SceneFrameStatus::parse_failed}, // a tag without its value
                // A writer that forgot that the length counts itself cuts the object short.
                {frame(scene_of_zeros(), 0), SceneFrameStatus::parse_failed},
                {{0, 0, 0, 10, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, SceneFrameStatus::parse_failed},
                {bad_utf8, SceneFrameStatus::parse_failed},
                {frame(named), SceneFrameStatus::ok},
                {frame(large), SceneFrameStatus::ok},
        };
        for (size_t i = 0; i < cases.size(); i++) {
                Scene scene;
                EXPECT_EQ(scene_frame_decode(cases[i].first.data(), scene).status, cases[i].second) << i;
        }
}

// Presence comes from the oneof cases, not from the values; the first fault in check
// order is the one reported; the class id is read as a signed 32-bit index.
TEST(SceneFrame, ObjectChecksReportTheFirstFaultInOrder)
{
        using Fault = SceneObjectFault;
        auto label = [](Object &o) { return o.mutable_labels()->mutable_labels(0); };
        const std::vector<std::tuple<std::function<void(Object &)>, Fault, int32_t>> cases = {
                {[](Object &) {}, Fault::none, 0},
                {[&](Object &o) { label(o)->set_id(5); }, Fault::none, 5},
                {[](Object &o) { o.clear_has_object_id(), o.clear_has_boundingbox(); }, Fault::missing_id, -1},
                {[](Object &o) { o.clear_has_boundingbox(), o.clear_has_position(); }, Fault::missing_box, -1},
                {[](Object &o) { o.clear_has_position(), o.clear_has_labels(); }, Fault::missing_position, -1},
                {[](Object &o) { o.clear_has_labels(); }, Fault::missing_classification, -1},
                {[](Object &o) { o.mutable_labels()->clear_labels(); }, Fault::missing_classification, -1},
                // Only the first label counts.
                {[&](Object &o) { label(o)->clear_has_class_id(), o.mutable_labels()->add_labels()->set_id(3); },
                 Fault::missing_classification, -1},
                {[&](Object &o) { label(o)->set_id(6); }, Fault::bad_classification, -1},
                {[&](Object &o) { label(o)->set_id(0xFFFFFFFF); }, Fault::bad_classification, -1},
                {[&](Object &o) { label(o)->set_id(0x80000000); }, Fault::bad_classification, -1},
        };
        for (size_t i = 0; i < cases.size(); i++) {
                Object object = scene_of_zeros().objects(0);
                std::get<0>(cases[i])(object);
                int32_t index = -1;
                Fault fault = scene_object_check_identity(object);
                if (fault == Fault::none)
                        fault = scene_object_check_classification(object, 6, &index);
                EXPECT_EQ(fault, std::get<1>(cases[i])) << i;
                EXPECT_EQ(index, std::get<2>(cases[i])) << i;
        }
}

} // namespace
