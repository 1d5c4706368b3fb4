// Placeholder of the connection manager: its accessors, so that the control interfaces
// can be built against them. The tick, poll and probe follow.
#include "camera.h"

#include "persistent.h"
#include "radar_metadata.h"

namespace {

struct CameraLink {
        int state = 0;
        gboolean tracking_enabled = FALSE;
        gboolean reconnect_requested = TRUE;
};

CameraLink camera_link;

const char *const state_names[] = {"disconnected", "connecting", "autotune", "connected", "connect_failed"};

} // namespace

gboolean ptz_control_setup(void)
{
        camera_link.tracking_enabled = persistent_get_tracking_enabled();
        radar_metadata_set_enabled(camera_link.tracking_enabled);
        return TRUE;
}

void ptz_control_teardown(void)
{
}

gboolean camera_is_connected(void)
{
        return camera_link.state == 3;
}

gchar *camera_get_connection_state(void)
{
        return g_strdup(state_names[camera_link.state]);
}

void tracking_set_enabled(gboolean enabled)
{
        camera_link.tracking_enabled = enabled;
}

gboolean tracking_get_enabled(void)
{
        return camera_link.tracking_enabled;
}

double camera_get_pan(void)
{
        return 0.0;
}

double camera_get_tilt(void)
{
        return 0.0;
}

void camera_request_reconnect(void)
{
        camera_link.reconnect_requested = TRUE;
}
