// The simulated camera's control interface for tests and the demo: HTTP with JSON
// answers on a Unix socket.
//   GET  /status                      the camera's state, counters and settings
//   GET  /requests?since=N            the request log from seq N on
//   POST /fault?name=NAME&on=1|0      switches a fault
//   POST /set?firmware=..&metadata=yes|no&product_number=..&min_field_angle=..
//            &max_field_angle=..&user=..&password=..&auth=basic|digest|both
//   POST /position?pan=..&tilt=..&zoom=..   puts the camera there at rest
//   POST /home?pan=..&tilt=..&zoom=..       where move=home goes
// A bad request gets 400 with {"error": "..."} and changes nothing.
#pragma once

#include "sim_camera.h"

#include <gio/gio.h>
#include <jansson.h>

#include <string>

bool simcam_control_setup(SimCamera *camera, const char *socket_path, GError **error);
void simcam_control_teardown(void);

// The changes of /set and /position, also used for the command line. False with a
// message, and nothing changed, when a value is bad.
bool simcam_control_set(SimCamera *camera, GHashTable *settings, std::string *error);
bool simcam_control_position(SimCamera *camera, GHashTable *position, std::string *error);

// The /status document (new reference).
json_t *simcam_control_status(const SimCamera &camera);
