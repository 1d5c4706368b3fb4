#include "scene_frame.h"

#include <glib.h>

#include <cstring>

namespace {

constexpr uint32_t scene_frame_header_size = 4;

} // namespace

uint32_t scene_frame_read_length(const uint8_t *frame)
{
        uint32_t big_endian;
        std::memcpy(&big_endian, frame, sizeof(big_endian));
        return GUINT32_FROM_BE(big_endian);
}

SceneFrameResult scene_frame_decode(const uint8_t *frame, Scene &scene)
{
        const uint32_t length = scene_frame_read_length(frame);
        if (length <= scene_frame_header_size)
                return {SceneFrameStatus::bad_size, length};
        const uint32_t message_size = length - scene_frame_header_size;
        // ParseFromArray takes an int; a length above INT_MAX cannot come from one packet.
        if (message_size > static_cast<uint32_t>(INT32_MAX))
                return {SceneFrameStatus::parse_failed, length};
        if (!scene.ParseFromArray(frame + scene_frame_header_size, static_cast<int>(message_size)))
                return {SceneFrameStatus::parse_failed, length};
        return {SceneFrameStatus::ok, length};
}

SceneObjectFault scene_object_check_identity(const Object &object)
{
        if (object.has_object_id_case() != Object::kId)
                return SceneObjectFault::missing_id;
        if (object.has_boundingbox_case() != Object::kBoundingBox)
                return SceneObjectFault::missing_box;
        return SceneObjectFault::none;
}

SceneObjectFault scene_object_check_classification(const Object &object, int32_t n_classes,
                                                   int32_t *class_index)
{
        if (object.has_position_case() != Object::kPosition)
                return SceneObjectFault::missing_position;
        if (object.has_labels_case() != Object::kLabels || object.labels().labels_size() < 1)
                return SceneObjectFault::missing_classification;
        const Label &first = object.labels().labels(0);
        if (first.has_class_id_case() != Label::kId)
                return SceneObjectFault::missing_classification;
        // The id is read as a signed 32-bit number: 2^31 and above are errors, not indices.
        const auto index = static_cast<int32_t>(first.id());
        if (index < 0 || index >= n_classes)
                return SceneObjectFault::bad_classification;
        *class_index = index;
        return SceneObjectFault::none;
}
