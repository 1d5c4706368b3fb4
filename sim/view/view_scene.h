// The live view's scene subscriber: reads the radar's scene provider socket on the main
// loop (the "RSP1" packet with the class names, then one framed Scene per packet) and
// hands each scene's objects to the model. A lost or refused connection is retried every
// second.
#pragma once

#include "view_model.h"

void view_scene_start(ViewModel *model, const char *socket_path);
void view_scene_stop(void);

// The objects of one frame (4-byte big-endian length, then the Scene); false when the
// frame does not parse.
bool view_scene_objects(const uint8_t *frame, size_t size, std::vector<ViewObject> *objects);
