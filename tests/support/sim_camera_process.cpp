#include "sim_camera_process.h"

#include <curl/curl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace {

size_t sim_camera_collect(char *data, size_t size, size_t count, void *user)
{
        static_cast<std::string *>(user)->append(data, size * count);
        return size * count;
}

std::string sim_camera_query(const std::map<std::string, std::string> &values)
{
        std::string query;
        for (const auto &[key, value] : values) {
                char *escaped = curl_easy_escape(nullptr, value.c_str(), static_cast<int>(value.size()));
                query += (query.empty() ? "?" : "&") + key + "=" + escaped;
                curl_free(escaped);
        }
        return query;
}

// The query of a position: pan, tilt and zoom.
std::string sim_camera_position_query(double pan, double tilt, double zoom)
{
        std::map<std::string, std::string> values;
        for (const auto &[key, value] : {std::pair{"pan", pan}, {"tilt", tilt}, {"zoom", zoom}}) {
                char text[G_ASCII_DTOSTR_BUF_SIZE];
                values[key] = g_ascii_dtostr(text, sizeof(text), value);
        }
        return sim_camera_query(values);
}

uint64_t sim_camera_count(const json_t *object, const char *key)
{
        return static_cast<uint64_t>(json_member_integer(object, key));
}

SimCameraStatus sim_camera_status_from(const json_t *root, const std::string &text)
{
        SimCameraStatus s;
        s.json = text;
        s.pan = json_member_number(root, "pan");
        s.tilt = json_member_number(root, "tilt");
        s.zoom = json_member_number(root, "zoom");
        s.reported_zoom = static_cast<int>(json_member_integer(root, "reported_zoom"));
        s.moving = json_is_true(json_object_get(root, "moving"));
        s.pan_speed = json_member_number(root, "pan_speed");
        s.tilt_speed = json_member_number(root, "tilt_speed");
        s.zoom_speed = json_member_number(root, "zoom_speed");
        const json_t *connections = json_object_get(root, "connections");
        s.http_connections = sim_camera_count(connections, "http");
        s.https_connections = sim_camera_count(connections, "https");
        s.requests = sim_camera_count(root, "requests");
        size_t i;
        json_t *fault;
        json_array_foreach(json_object_get(root, "faults"), i, fault) s.faults.push_back(json_string_value(fault));
        s.firmware = json_member_text(root, "firmware");
        s.metadata = json_is_true(json_object_get(root, "metadata"));
        s.stream_offered = json_is_true(json_object_get(root, "stream_offered"));
        s.product_number = json_member_text(root, "product_number");
        const json_t *angles = json_object_get(root, "field_angle");
        s.min_field_angle = static_cast<int>(json_member_integer(angles, "min"));
        s.max_field_angle = static_cast<int>(json_member_integer(angles, "max"));
        const json_t *rtsp = json_object_get(root, "rtsp");
        s.rtsp_clients = sim_camera_count(rtsp, "clients");
        s.rtsp_packets = sim_camera_count(rtsp, "packets");
        return s;
}

} // namespace

SimCameraProcess::SimCameraProcess(const std::vector<std::string> &options)
{
        g_autoptr(GError) error = nullptr;
        g_autofree gchar *directory = g_dir_make_tmp("sim-camera-XXXXXX", &error);
        if (!directory) {
                ADD_FAILURE() << "no temporary directory: " << error->message;
                return;
        }
        directory_ = directory;
        socket_ = directory_ + "/control.sock";
        std::vector<std::string> argv{TRELVO_SIM_CAMERA, "--control", socket_};
        argv.insert(argv.end(), options.begin(), options.end());
        // The camera starts GStreamer; finding GLib's leak among its own would take a full
        // unwind of every allocation, which slows its TLS handshakes past a client's
        // patience in sanitizer builds. It is a test peer: its leaks are not looked for.
        std::vector<std::string> env;
        if (const char *asan = getenv("ASAN_OPTIONS"))
                env.push_back(std::string("ASAN_OPTIONS=") + asan + ":detect_leaks=0:fast_unwind_on_malloc=1");
        start(argv, env, "sim-camera: ready");
}

SimCameraProcess::~SimCameraProcess()
{
        stop();
        if (!socket_.empty())
                g_unlink(socket_.c_str());
        if (!directory_.empty())
                g_rmdir(directory_.c_str());
}

long SimCameraProcess::control(const std::string &method, const std::string &path, std::string *body)
{
        CURL *curl = curl_easy_init();
        const std::string url = "http://sim-camera" + path;
        body->clear();
        curl_easy_setopt(curl, CURLOPT_UNIX_SOCKET_PATH, socket_.c_str());
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, sim_camera_collect);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, body);
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 5000L);
        long status = 0;
        if (curl_easy_perform(curl) == CURLE_OK)
                curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        curl_easy_cleanup(curl);
        return status;
}

JsonPtr SimCameraProcess::get_json(const std::string &path, const char *what)
{
        std::string body;
        const long code = control("GET", path, &body);
        JsonPtr root(code == 200 ? json_loads(body.c_str(), 0, nullptr) : nullptr);
        if (!root)
                ADD_FAILURE() << "sim-camera " << what << ": " << code << " " << body;
        return root;
}

bool SimCameraProcess::post(const std::string &path, const char *what)
{
        std::string body;
        const long code = control("POST", path, &body);
        if (code != 200)
                ADD_FAILURE() << "sim-camera " << what << ": " << code << " " << body;
        return code == 200;
}

SimCameraStatus SimCameraProcess::status()
{
        const JsonPtr root = get_json("/status", "status");
        return root ? sim_camera_status_from(root.get(), json_compact(root.get())) : SimCameraStatus{};
}

std::vector<SimCameraRequest> SimCameraProcess::requests(uint64_t since, uint64_t *next)
{
        const JsonPtr root = get_json("/requests?since=" + std::to_string(since), "requests");
        std::vector<SimCameraRequest> list;
        size_t i;
        json_t *entry;
        json_array_foreach(json_object_get(root.get(), "requests"), i, entry)
        {
                list.push_back(SimCameraRequest{.seq = sim_camera_count(entry, "seq"),
                                                .t_us = json_member_integer(entry, "t_us"),
                                                .scheme = json_member_text(entry, "scheme"),
                                                .path = json_member_text(entry, "path"),
                                                .status = static_cast<int>(json_member_integer(entry, "status")),
                                                .user = json_member_text(entry, "user")});
        }
        if (root && next)
                *next = sim_camera_count(root.get(), "next");
        return list;
}

bool SimCameraProcess::set_fault(const std::string &name, bool on)
{
        return post("/fault" + sim_camera_query({{"name", name}, {"on", on ? "1" : "0"}}), "fault");
}

bool SimCameraProcess::set(const std::map<std::string, std::string> &settings)
{
        return post("/set" + sim_camera_query(settings), "set");
}

bool SimCameraProcess::teleport(double pan, double tilt, double zoom)
{
        return post("/position" + sim_camera_position_query(pan, tilt, zoom), "position");
}

bool SimCameraProcess::set_home(double pan, double tilt, double zoom)
{
        return post("/home" + sim_camera_position_query(pan, tilt, zoom), "home");
}

bool SimCameraProcess::wait_for(const std::function<bool(const SimCameraStatus &)> &condition, const std::string &what,
                                double seconds)
{
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        SimCameraStatus last;
        do {
                last = status();
                if (condition(last))
                        return true;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        } while (std::chrono::steady_clock::now() < deadline);
        ADD_FAILURE() << "sim-camera: no " << what << " within " << seconds << " s; last status " << last.json;
        return false;
}
