#include "ptz_status_xml.h"

namespace {

constexpr char pan_tilt_space[] = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace";
constexpr char zoom_space[] = "http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace";

const char *simcam_ptz_move_status(bool moving)
{
        return moving ? "MOVING" : "IDLE";
}

} // namespace

std::string simcam_ptz_status_xml(const SimCamera &camera, GDateTime *utc)
{
        const PtzState &ptz = camera.ptz;
        const bool pan_tilt_moving = ptz_dynamics_channel_moving(ptz.pan) || ptz_dynamics_channel_moving(ptz.tilt);
        g_autofree gchar *time = g_date_time_format(utc, "%Y-%m-%dT%H:%M:%S");
        g_autofree gchar *xml = g_strdup_printf(
                "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<tt:MetadataStream xmlns:tt=\"http://www.onvif.org/ver10/schema\"><tt:PTZ><tt:PTZStatus>"
                "<tt:Position><tt:PanTilt x=\"%f\" y=\"%f\" space=\"%s\"/><tt:Zoom x=\"%f\" space=\"%s\"/></tt:Position>"
                "<tt:MoveStatus><tt:PanTilt>%s</tt:PanTilt><tt:Zoom>%s</tt:Zoom></tt:MoveStatus>"
                "<tt:UtcTime>%s.%03dZ</tt:UtcTime></tt:PTZStatus></tt:PTZ></tt:MetadataStream>",
                ptz.pan.position / 180.0, ptz.tilt.position / 180.0, pan_tilt_space,
                sim_camera_reported_zoom(camera) / 10000.0, zoom_space, simcam_ptz_move_status(pan_tilt_moving),
                simcam_ptz_move_status(ptz_dynamics_channel_moving(ptz.zoom)), time,
                g_date_time_get_microsecond(utc) / 1000);
        return xml;
}
