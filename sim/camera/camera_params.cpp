#include "camera_params.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace {

using Parameter = std::pair<std::string, std::string>;

std::vector<Parameter> simcam_params_all(const SimCamera &camera)
{
        const CameraIdentity &id = camera.identity;
        return {
                {"Brand.Brand", "Zelk"},
                {"Brand.ProdFullName", "Zelk " + id.product_number + " PTZ Network Camera"},
                {"Brand.ProdNbr", id.product_number},
                {"Brand.ProdShortName", "Zelk " + id.product_number},
                {"Brand.ProdType", "PTZ Network Camera"},
                {"Brand.ProdVariant", ""},
                {"Properties.API.HTTP.Version", "3"},
                {"Properties.API.Metadata.Metadata", id.metadata ? "yes" : "no"},
                {"Properties.API.Metadata.Version", "1.0"},
                {"Properties.Firmware.BuildDate", "Jun 12 2024 10:31"},
                {"Properties.Firmware.Version", id.firmware},
                {"Properties.Image.Format", "jpeg,mjpeg,h264"},
                {"Properties.PTZ.PTZ", "yes"},
                {"Properties.PTZ.DigitalPTZ", "no"},
                {"Properties.System.Architecture", "armv7hf"},
                {"Properties.System.SerialNumber", "ACCC8E5A1D07"},
                {"PTZ.Limit.L1.MaxFieldAngle", std::to_string(id.max_field_angle)},
                {"PTZ.Limit.L1.MaxPan", "180"},
                {"PTZ.Limit.L1.MaxTilt", "20"},
                {"PTZ.Limit.L1.MaxZoom", "9999"},
                {"PTZ.Limit.L1.MinFieldAngle", std::to_string(id.min_field_angle)},
                {"PTZ.Limit.L1.MinPan", "-180"},
                {"PTZ.Limit.L1.MinTilt", "-90"},
                {"PTZ.Limit.L1.MinZoom", "1"},
        };
}

bool simcam_params_in_group(const std::string &name, const char *group)
{
        const size_t length = strlen(group);
        return name.size() >= length && g_ascii_strncasecmp(name.c_str(), group, length) == 0 &&
               (name.size() == length || name[length] == '.');
}

bool simcam_params_in_groups(const std::string &name, char **groups)
{
        for (char **group = groups; *group; group++)
                if (simcam_params_in_group(name, *group))
                        return true;
        return false;
}

bool simcam_params_read(GHashTable *query, const char *key, std::optional<double> *value, std::string *error)
{
        const auto *text = static_cast<const char *>(g_hash_table_lookup(query, key));
        if (!text)
                return true;
        double number;
        if (!simcam_params_number(text, &number)) {
                *error = std::string("# Error: bad value for ") + key;
                return false;
        }
        *value = number;
        return true;
}

bool simcam_params_read_pan_tilt_speed(GHashTable *query, PtzCommand *command, std::string *error)
{
        const auto *text = static_cast<const char *>(g_hash_table_lookup(query, "continuouspantiltmove"));
        if (!text)
                return true;
        g_auto(GStrv) parts = g_strsplit(text, ",", 0);
        double pan, tilt;
        if (g_strv_length(parts) != 2 || !simcam_params_number(parts[0], &pan) || !simcam_params_number(parts[1], &tilt)) {
                *error = "# Error: bad value for continuouspantiltmove";
                return false;
        }
        command->pan_speed = pan;
        command->tilt_speed = tilt;
        return true;
}

bool simcam_params_parse_move(GHashTable *query, PtzCommand *command, std::string *error)
{
        if (!simcam_params_read_pan_tilt_speed(query, command, error) ||
            !simcam_params_read(query, "continuouszoommove", &command->zoom_speed, error) ||
            !simcam_params_read(query, "pan", &command->pan, error) || !simcam_params_read(query, "tilt", &command->tilt, error) ||
            !simcam_params_read(query, "zoom", &command->zoom, error))
                return false;
        const bool continuous = command->pan_speed || command->zoom_speed;
        const bool absolute = command->pan || command->tilt || command->zoom;
        if (continuous && absolute) {
                *error = "# Error: continuous and absolute move in one request";
                return false;
        }
        if (!continuous && !absolute) {
                *error = "# Error: no PTZ command";
                return false;
        }
        command->kind = PtzCommand::Kind::move;
        return true;
}

} // namespace

bool simcam_params_list(const SimCamera &camera, const char *group, std::string *reply)
{
        g_auto(GStrv) groups = g_strsplit(group && *group ? group : "", ",", 0);
        const bool everything = !group || !*group;
        reply->clear();
        for (const Parameter &parameter : simcam_params_all(camera))
                if (everything || simcam_params_in_groups(parameter.first, groups))
                        *reply += parameter.first + "=" + parameter.second + "\n";
        return !reply->empty();
}

std::string simcam_params_position(const SimCamera &camera)
{
        g_autofree gchar *reply = g_strdup_printf("pan=%.4f\r\ntilt=%.4f\r\nzoom=%d\r\niris=1000\r\nfocus=7512\r\n"
                                                  "brightness=4999\r\nautofocus=on\r\nautoiris=on\r\n",
                                                  camera.ptz.pan.position, camera.ptz.tilt.position,
                                                  sim_camera_reported_zoom(camera));
        return reply;
}

bool simcam_params_number(const char *text, double *value)
{
        char *end = nullptr;
        const double number = strtod(text, &end);
        if (end == text)
                return false;
        while (g_ascii_isspace(*end))
                end++;
        if (*end != '\0' || !std::isfinite(number))
                return false;
        *value = number;
        return true;
}

bool simcam_params_parse_ptz(GHashTable *query, PtzCommand *command, std::string *error)
{
        *command = PtzCommand{};
        if (!query) {
                *error = "# Error: no PTZ command";
                return false;
        }
        if (const auto *what = static_cast<const char *>(g_hash_table_lookup(query, "query"))) {
                command->kind = PtzCommand::Kind::query_position;
                if (g_str_equal(what, "position"))
                        return true;
                *error = std::string("# Error: unsupported query ") + what;
                return false;
        }
        if (const auto *move = static_cast<const char *>(g_hash_table_lookup(query, "move"))) {
                if (g_str_equal(move, "home") || g_str_equal(move, "stop")) {
                        command->kind = g_str_equal(move, "home") ? PtzCommand::Kind::home : PtzCommand::Kind::stop;
                        return true;
                }
                *error = std::string("# Error: unsupported move ") + move;
                return false;
        }
        return simcam_params_parse_move(query, command, error);
}

void simcam_params_apply_ptz(SimCamera *camera, const PtzCommand &command)
{
        PtzState *ptz = &camera->ptz;
        switch (command.kind) {
        case PtzCommand::Kind::query_position:
                return;
        case PtzCommand::Kind::home:
                ptz_dynamics_seek_pan(ptz, camera->home_pan);
                ptz_dynamics_seek_tilt(ptz, camera->home_tilt);
                ptz_dynamics_seek_zoom(ptz, camera->home_zoom);
                return;
        case PtzCommand::Kind::stop:
                for (PtzChannel *channel : {&ptz->pan, &ptz->tilt, &ptz->zoom})
                        ptz_dynamics_set_speed(channel, 0.0);
                return;
        case PtzCommand::Kind::move:
                break;
        }
        if (command.pan_speed) {
                ptz_dynamics_set_speed(&ptz->pan, *command.pan_speed);
                ptz_dynamics_set_speed(&ptz->tilt, *command.tilt_speed);
        }
        if (command.zoom_speed)
                ptz_dynamics_set_speed(&ptz->zoom, *command.zoom_speed);
        if (command.pan)
                ptz_dynamics_seek_pan(ptz, *command.pan);
        if (command.tilt)
                ptz_dynamics_seek_tilt(ptz, *command.tilt);
        if (command.zoom)
                ptz_dynamics_seek_zoom(ptz, *command.zoom);
}
