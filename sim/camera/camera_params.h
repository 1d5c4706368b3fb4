// What the simulated camera's CGIs say and read: the parameter lists, the position reply,
// and the PTZ commands read from a query.
#pragma once

#include "sim_camera.h"

#include <glib.h>

#include <optional>
#include <string>

// The parameter list of param.cgi for group: one "Name=value" line per parameter whose
// name begins with the group (case-insensitive, whole name parts; several groups may be
// separated by commas; null or "" lists everything). False when no parameter matches.
bool simcam_params_list(const SimCamera &camera, const char *group, std::string *reply);

// The reply to query=position: pan, tilt, zoom and the lines a camera adds.
std::string simcam_params_position(const SimCamera &camera);

struct PtzCommand {
        enum class Kind { query_position, move, home, stop } kind = Kind::move;
        // Continuous speeds, -100 to 100 (clamped when applied).
        std::optional<double> pan_speed, tilt_speed, zoom_speed;
        // Absolute targets: degrees, degrees, zoom position.
        std::optional<double> pan, tilt, zoom;
};

// A number as the camera reads it: strtod over the whole text (white space around it
// allowed), finite.
bool simcam_params_number(const char *text, double *value);
// Reads ptz.cgi's decoded query. False, with a camera-style message in *error, when the
// query holds no command, an unknown one, a value that is not a number, or continuous and
// absolute moves at once.
bool simcam_params_parse_ptz(GHashTable *query, PtzCommand *command, std::string *error);
// Carries out a move, go home or stop (a position query changes nothing).
void simcam_params_apply_ptz(SimCamera *camera, const PtzCommand &command);
