// The live view's reader of the simulated camera's control interface (a Unix socket):
// its status (position, zoom, field angles, connection counts) at 20 Hz, and its request
// log, from which the continuous moves are counted.
#pragma once

#include "view_model.h"

void view_camera_start(ViewModel *model, const char *control_socket);
void view_camera_stop(void);

// The camera part of a GET /status answer; false when it is not one.
bool view_camera_from_status(const char *text, size_t size, ViewCamera *camera);
// The continuous moves of a GET /requests answer, and the sequence number to ask from next.
bool view_camera_moves(const char *text, size_t size, std::vector<int64_t> *moves_us, uint64_t *next);
