// Scene intake: subscribes to the radar's scenes while tracking is enabled and turns each
// scene's objects into the tracker's radar targets (source id 1), removing the targets
// whose objects left the scene.
#pragma once

#include <glib.h>

#include <cstdint>

// Class code of a scene object, from the classification names the radar reports.
enum ObjectClass : uint32_t {
        OBJECT_CLASS_RAW = 0,
        OBJECT_CLASS_RAW_ASSOCIATED = 1,
        OBJECT_CLASS_UNKNOWN = 2,
        OBJECT_CLASS_HUMAN = 3,
        OBJECT_CLASS_VEHICLE = 4,
        OBJECT_CLASS_SMALL_OBJECT = 5,
};

// Creates the subscriber and learns the radar's classes; does not subscribe. Always TRUE.
gboolean radar_metadata_setup(void);
// Unsubscribes, deletes the subscriber and forgets the known objects and classes. The
// tracker is not told.
void radar_metadata_cleanup(void);

// Subscribes or unsubscribes; a repeated value does nothing. Main loop only.
void radar_metadata_set_enabled(gboolean enable);
// The same, deferred to an idle callback on the main loop; the last value requested
// before the loop runs wins.
void radar_metadata_request_enabled(gboolean enable);

// Bit (1 << code) for each ObjectClass the radar offers. Any thread.
uint32_t radar_metadata_get_object_classes(void);

// The subscriber's message-arrived callback: one frame (4-byte big-endian total length,
// then a Scene), released here with free(). Runs on the subscriber's thread.
void radar_metadata_handle_scene(uint8_t *frame);
