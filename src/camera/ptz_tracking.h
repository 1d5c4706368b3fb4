// What the control tick does while the camera is connected: feed the tracker's group and
// the camera's position to the motion controller, send its speeds as continuous moves,
// one stop when it goes idle, and the camera home after a quiet period. Main loop only.
#pragma once

void camera_tracking_tick(void);
