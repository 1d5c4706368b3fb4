#include "sim_camera_process.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <cstdlib>

SimCameraProcess::SimCameraProcess(const std::vector<std::string> &options)
{
        std::vector<std::string> argv{TRELVO_SIM_CAMERA, "--control", socket_};
        argv.insert(argv.end(), options.begin(), options.end());
        // Also: finding GLib's leak among the camera's own would take a full unwind of every
        // allocation, which slows its TLS handshakes past a client's patience.
        start(argv, sanitizer_options_without_leak_check(), "sim-camera: ready");
}

HttpAnswer SimCameraProcess::control(const char *method, const std::string &path, const char *what)
{
        HttpAnswer answer = http_request({.unix_socket = socket_, .url = "http://sim-camera" + path, .method = method});
        if (answer.status != 200)
                ADD_FAILURE() << "sim-camera " << what << ": " << answer.status << " " << answer.body;
        return answer;
}

SimCameraStatus SimCameraProcess::status()
{
        const HttpAnswer answer = control("GET", "/status", "status");
        const json_t *root = answer.json.get();
        SimCameraStatus s;
        if (answer.status != 200 || !root)
                return s;
        s.json = answer.body;
        s.pan = json_member_number(root, "pan");
        s.moving = json_is_true(json_object_get(root, "moving"));
        const json_t *connections = json_object_get(root, "connections");
        s.http_connections = json_member_integer(connections, "http");
        s.https_connections = json_member_integer(connections, "https");
        s.requests = json_member_integer(root, "requests");
        s.pan_speed = json_member_number(root, "pan_speed");
        s.tilt_speed = json_member_number(root, "tilt_speed");
        const json_t *rtsp = json_object_get(root, "rtsp");
        s.rtsp_clients = json_member_integer(rtsp, "clients");
        s.rtsp_packets = json_member_integer(rtsp, "packets");
        return s;
}

std::vector<SimCameraRequest> SimCameraProcess::requests(uint64_t since, uint64_t *next)
{
        const HttpAnswer answer = control("GET", "/requests?since=" + std::to_string(since), "requests");
        std::vector<SimCameraRequest> list;
        size_t i;
        json_t *entry;
        json_array_foreach(json_object_get(answer.json.get(), "requests"), i, entry)
                list.push_back(SimCameraRequest{.t_us = json_member_integer(entry, "t_us"),
                                                .scheme = json_member_text(entry, "scheme"),
                                                .path = json_member_text(entry, "path"),
                                                .status = static_cast<int>(json_member_integer(entry, "status"))});
        if (answer.json && next)
                *next = json_member_integer(answer.json.get(), "next");
        return list;
}

bool SimCameraProcess::set_fault(const std::string &name, bool on)
{
        return control("POST", "/fault?name=" + name + (on ? "&on=1" : "&on=0"), "fault").status == 200;
}

bool SimCameraProcess::teleport(double pan, double tilt, double zoom)
{
        char text[3][G_ASCII_DTOSTR_BUF_SIZE];
        const std::string query = std::string("?pan=") + g_ascii_dtostr(text[0], sizeof(text[0]), pan) +
                                  "&tilt=" + g_ascii_dtostr(text[1], sizeof(text[1]), tilt) +
                                  "&zoom=" + g_ascii_dtostr(text[2], sizeof(text[2]), zoom);
        return control("POST", "/position" + query, "position").status == 200;
}

bool SimCameraProcess::wait_for(const std::function<bool(const SimCameraStatus &)> &condition, const std::string &what,
                                double seconds)
{
        SimCameraStatus last;
        if (poll_until([&] { return condition(last = status()); }, seconds))
                return true;
        ADD_FAILURE() << "sim-camera: no " << what << " within " << seconds << " s; last status " << last.json;
        return false;
}
