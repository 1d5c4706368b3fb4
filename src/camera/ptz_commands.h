// The camera's HTTP command paths, and the HTTP position poll's reading of the replies.
// Main loop only. Move replies are not looked at beyond noting a camera that refuses them.
#pragma once

#include "camera_replies.h"

void camera_send_continuous_move(float pan_speed, float tilt_speed, float zoom_speed);
// The continuous move with three zeros.
void camera_send_stop(void);
void camera_send_go_home(void);
// Degrees, degrees, the camera's zoom position.
void camera_send_absolute_move(float pan, float tilt, float zoom);

// Sends the position query; its status, with the reply read into *read (nothing read
// unless the status is 200).
long camera_query_position(PositionReply *read);
// Applies a read reply to the camera position, each channel moving when its reading
// differs from the previous poll's. False, and nothing applied, when nothing was read.
bool camera_apply_position_reply(const PositionReply &read);
// Ends a poll: what was read becomes the previous poll's reading.
void camera_remember_poll(const PositionReply &read);

// Parameter lists of the probe; the reply text (NULL unless the status is 200) is the
// caller's to free.
long camera_query_parameters(const char *group, char **reply);
