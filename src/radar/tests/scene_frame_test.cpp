#include "scene_frame.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes cat(std::initializer_list<Bytes> parts)
{
        Bytes out;
        for (const Bytes &p : parts)
                out.insert(out.end(), p.begin(), p.end());
        return out;
}

// A length-delimited field: tag, length, payload.
Bytes field(uint8_t tag, const Bytes &payload)
{
        return cat({{tag, static_cast<uint8_t>(payload.size())}, payload});
}

// A frame whose length field counts itself, as the provider writes it.
Bytes frame(const Bytes &message, uint32_t extra_length = 4)
{
        const uint32_t n = static_cast<uint32_t>(message.size()) + extra_length;
        return cat({{static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8),
                     static_cast<uint8_t>(n)},
                    message});
}

// Object fields, hand-encoded (field number << 3 | wire type).
const Bytes id_zero = {0x08, 0x00};
const Bytes empty_box = field(0x22, {});
const Bytes empty_position = field(0x3A, {});
Bytes labels_with_class(const Bytes &class_varint)
{
        return field(0x1A, field(0x0A, cat({{0x08}, class_varint})));
}
Bytes scene_of(const Bytes &object)
{
        return field(0x1A, object);
}

TEST(SceneFrame, LengthCountsItselfAndShortFramesAreRejectedBeforeParsing)
{
        Scene scene;
        const Bytes length4 = {0, 0, 0, 4};
        EXPECT_EQ(scene_frame_decode(length4.data(), scene).status, SceneFrameStatus::bad_size);
        EXPECT_EQ(scene_frame_decode(length4.data(), scene).length, 4u);
        const Bytes length0 = {0, 0, 0, 0};
        EXPECT_EQ(scene_frame_decode(length0.data(), scene).status, SceneFrameStatus::bad_size);

        // Five bytes carry one message byte: a tag with no value never parses.
        const Bytes length5 = {0, 0, 0, 5, 0x08};
        EXPECT_EQ(scene_frame_decode(length5.data(), scene).status, SceneFrameStatus::parse_failed);

        // A writer that forgot the length counts itself loses the last four bytes: here the
        // object is cut in the middle and the parse fails.
        const Bytes message = scene_of(cat({id_zero, empty_box, empty_position, labels_with_class({0x03})}));
        const Bytes short_frame = frame(message, 0);
        EXPECT_EQ(scene_frame_decode(short_frame.data(), scene).status, SceneFrameStatus::parse_failed);

        const Bytes good = frame(message);
        Scene parsed;
        ASSERT_EQ(scene_frame_decode(good.data(), parsed).status, SceneFrameStatus::ok);
        ASSERT_EQ(parsed.objects_size(), 1);
        EXPECT_EQ(parsed.objects(0).labels().labels(0).id(), 3u);
}

TEST(SceneFrame, PresenceComesFromTheOneofNotFromTheValues)
{
        const Bytes good = frame(scene_of(cat({id_zero, empty_box, empty_position, labels_with_class({0x00})})));
        Scene scene;
        ASSERT_EQ(scene_frame_decode(good.data(), scene).status, SceneFrameStatus::ok);
        const Object &object = scene.objects(0);
        EXPECT_EQ(object.id(), 0u);
        EXPECT_EQ(scene_object_check_identity(object), SceneObjectFault::none);
        int32_t index = -1;
        EXPECT_EQ(scene_object_check_classification(object, 6, &index), SceneObjectFault::none);
        EXPECT_EQ(index, 0);

        // Each required field missing in turn, in the order the checks apply.
        Object no_id = object;
        no_id.clear_has_object_id();
        no_id.clear_has_boundingbox();
        EXPECT_EQ(scene_object_check_identity(no_id), SceneObjectFault::missing_id);
        Object no_box = object;
        no_box.clear_has_boundingbox();
        EXPECT_EQ(scene_object_check_identity(no_box), SceneObjectFault::missing_box);
        Object no_position = object;
        no_position.clear_has_position();
        no_position.clear_has_labels();
        EXPECT_EQ(scene_object_check_classification(no_position, 6, &index), SceneObjectFault::missing_position);
}

TEST(SceneFrame, ClassificationNeedsAFirstLabelWithAnIdInsideTheNameList)
{
        int32_t index = -1;
        auto check = [&](const Bytes &labels) {
                const Bytes bytes = frame(scene_of(cat({id_zero, empty_box, empty_position, labels})));
                Scene scene;
                EXPECT_EQ(scene_frame_decode(bytes.data(), scene).status, SceneFrameStatus::ok);
                return scene_object_check_classification(scene.objects(0), 6, &index);
        };
        // labels present but empty; a first label without an id (a second one is not consulted)
        EXPECT_EQ(check(field(0x1A, {})), SceneObjectFault::missing_classification);
        EXPECT_EQ(check(field(0x1A, cat({field(0x0A, {0x15, 0, 0, 0x80, 0x3F}), field(0x0A, {0x08, 0x03})}))),
                  SceneObjectFault::missing_classification);
        // has_labels not set at all
        EXPECT_EQ(check({}), SceneObjectFault::missing_classification);
        // 4294967295 reads as -1: a classification error, never a large index
        EXPECT_EQ(check(labels_with_class({0xFF, 0xFF, 0xFF, 0xFF, 0x0F})), SceneObjectFault::bad_classification);
        EXPECT_EQ(check(labels_with_class({0x80, 0x80, 0x80, 0x80, 0x08})), SceneObjectFault::bad_classification);
        EXPECT_EQ(check(labels_with_class({0x06})), SceneObjectFault::bad_classification);
        EXPECT_EQ(check(labels_with_class({0x05})), SceneObjectFault::none);
        EXPECT_EQ(index, 5);
}

TEST(SceneFrame, PackedAndUnpackedRepeatedFieldsBothParse)
{
        const Bytes one = {0x00, 0x00, 0x80, 0x3F}; // 1.0f
        const Bytes two = {0x00, 0x00, 0x00, 0x40}; // 2.0f
        const Bytes packed_cov = field(0x4A, field(0x0A, cat({one, two})));
        const Bytes unpacked_cov = field(0x4A, cat({{0x0D}, one, {0x0D}, two}));
        const Bytes packed_ids = field(0x22, field(0x1A, {0x07, 0x09}));
        const Bytes unpacked_ids = field(0x22, {0x18, 0x07, 0x18, 0x09});

        for (const Bytes &cov : {packed_cov, unpacked_cov}) {
                for (const Bytes &events : {packed_ids, unpacked_ids}) {
                        const Bytes bytes = frame(cat({scene_of(cat({id_zero, cov})), events}));
                        Scene scene;
                        ASSERT_EQ(scene_frame_decode(bytes.data(), scene).status, SceneFrameStatus::ok);
                        ASSERT_EQ(scene.objects(0).covariance().elements_size(), 2);
                        EXPECT_EQ(scene.objects(0).covariance().elements(1), 2.0f);
                        ASSERT_EQ(scene.events(0).object_ids_size(), 2);
                        EXPECT_EQ(scene.events(0).object_ids(1), 9);
                }
        }
}

TEST(SceneFrame, GarbageTruncationAndInvalidUtf8AreParseFailuresWhileUnknownFieldsAreSkipped)
{
        Scene scene;
        const Bytes garbage = frame({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
        EXPECT_EQ(scene_frame_decode(garbage.data(), scene).status, SceneFrameStatus::parse_failed);

        const Bytes truncated = frame({0x1A, 0x10, 0x08, 0x01});
        EXPECT_EQ(scene_frame_decode(truncated.data(), scene).status, SceneFrameStatus::parse_failed);

        const Bytes bad_name = frame(scene_of(field(0x1A, field(0x0A, field(0x1A, {0xC3, 0x28})))));
        EXPECT_EQ(scene_frame_decode(bad_name.data(), scene).status, SceneFrameStatus::parse_failed);

        const Bytes good_name = frame(scene_of(field(0x1A, field(0x0A, field(0x1A, {0xC3, 0xA9})))));
        Scene named;
        EXPECT_EQ(scene_frame_decode(good_name.data(), named).status, SceneFrameStatus::ok);

        const Bytes unknown = frame(cat({{0xF8, 0x06, 0x2A}, scene_of(id_zero)})); // field 111 = 42
        Scene with_unknown;
        ASSERT_EQ(scene_frame_decode(unknown.data(), with_unknown).status, SceneFrameStatus::ok);
        EXPECT_EQ(with_unknown.objects_size(), 1);
}

} // namespace
