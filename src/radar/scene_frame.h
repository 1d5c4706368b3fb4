// Scene frames from the radar's scene provider: a 4-byte big-endian total length (the
// four bytes included) followed by one serialized Scene.
#pragma once

#include "scene.pb.h"

#include <cstdint>

enum class SceneFrameStatus {
        ok,
        bad_size,     // length field below 5
        parse_failed, // malformed, truncated, or a non-UTF-8 string
};

struct SceneFrameResult {
        SceneFrameStatus status;
        uint32_t length; // the frame's length field, for the rejection message
};

// Reads the length field and parses exactly length-4 bytes from byte 4 into scene (which
// should be freshly constructed). The delivering library guarantees the buffer holds at
// least as many bytes as its length field says.
SceneFrameResult scene_frame_decode(const uint8_t *frame, Scene &scene);
// The frame's length field: its first four bytes, big-endian.
uint32_t scene_frame_read_length(const uint8_t *frame);

// Why an object cannot become a target, in the order the checks apply.
enum class SceneObjectFault {
        none,
        missing_id,
        missing_box,
        missing_position,
        missing_classification,
        bad_classification,
};

// Identity checks, applied before the exclusion zones: object id, then bounding box.
SceneObjectFault scene_object_check_identity(const Object &object);

// The checks after the exclusion zones: polar position, then a first label with a class
// id that indexes one of the n_classes classification names. On success *class_index
// holds that index.
SceneObjectFault scene_object_check_classification(const Object &object, int32_t n_classes,
                                                   int32_t *class_index);
