#include "ptz_commands.h"

#include "camera_position.h"
#include "http_client.h"
#include "log.h"

#include <glib.h>

namespace {

constexpr const char *position_query_path = "zelk-cgi/com/ptz.cgi?query=position";

// The previous poll's readings, for the moving flags.
struct PollHistory {
        float pan = camera_angle_not_reported;
        float tilt = camera_angle_not_reported;
        int32_t zoom = camera_zoom_not_reported;
};

PollHistory history;
// A camera that refuses moves is reported once, not every tick, until one goes through.
bool moves_refused = false;

void camera_send(const gchar *path)
{
        const long status = http_request(path, nullptr);
        const bool refused = status >= 300;
        if (refused && !moves_refused)
                log_warning("%sCamera refused a command with HTTP status %ld: %s", status, path);
        moves_refused = refused;
}

int camera_moving_flag(bool read, bool changed)
{
        if (!read)
                return camera_moving_not_reported;
        return changed ? 1 : 0;
}

} // namespace

void camera_send_continuous_move(float pan_speed, float tilt_speed, float zoom_speed)
{
        gchar *path = g_strdup_printf("zelk-cgi/com/ptz.cgi?continuouspantiltmove=%f,%f&continuouszoommove=%f",
                                      static_cast<double>(pan_speed), static_cast<double>(tilt_speed),
                                      static_cast<double>(zoom_speed));
        camera_send(path);
        g_free(path);
}

void camera_send_stop(void)
{
        camera_send_continuous_move(0.0f, 0.0f, 0.0f);
}

void camera_send_go_home(void)
{
        camera_send("zelk-cgi/com/ptz.cgi?move=home");
}

void camera_send_absolute_move(float pan, float tilt, float zoom)
{
        gchar *path = g_strdup_printf("zelk-cgi/com/ptz.cgi?pan=%f&tilt=%f&zoom=%f", static_cast<double>(pan),
                                      static_cast<double>(tilt), static_cast<double>(zoom));
        camera_send(path);
        g_free(path);
}

long camera_query_position(PositionReply *read)
{
        gchar *body = nullptr;
        const long status = http_request(position_query_path, &body);
        *read = PositionReply{};
        if (status == 200)
                camera_parse_position_reply(body, read);
        g_free(body);
        return status;
}

bool camera_apply_position_reply(const PositionReply &read)
{
        const bool pan = read.pan != camera_angle_not_reported;
        const bool tilt = read.tilt != camera_angle_not_reported;
        const bool zoom = read.zoom != camera_zoom_not_reported;
        if (!pan && !tilt && !zoom)
                return false;
        camera_position_update(read.zoom, camera_moving_flag(pan, read.pan != history.pan),
                               camera_moving_flag(tilt, read.tilt != history.tilt),
                               camera_moving_flag(zoom, read.zoom != history.zoom), read.pan, read.tilt);
        return true;
}

void camera_remember_poll(const PositionReply &read)
{
        if (read.pan != camera_angle_not_reported)
                history.pan = read.pan;
        if (read.tilt != camera_angle_not_reported)
                history.tilt = read.tilt;
        if (read.zoom != camera_zoom_not_reported)
                history.zoom = read.zoom;
}

long camera_query_parameters(const char *group, char **reply)
{
        gchar *path = g_strdup_printf("zelk-cgi/param.cgi?action=list&group=%s", group);
        gchar *body = nullptr;
        const long status = http_request(path, &body);
        g_free(path);
        if (status != 200)
                g_clear_pointer(&body, g_free);
        *reply = body;
        return status;
}
