// The simulated PTZ camera (sim-camera) as a child process, and typed calls to its control
// interface. The camera listens in the network namespace of the test process (run the
// test inside tests/rig/sandbox to use the ports 80, 443 and 554); the control socket is
// in a fresh temporary directory, reachable from any namespace that shares the files.
#pragma once

#include "child_process.h"
#include "json_post.h"
#include "temp_dir.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct SimCameraStatus {
        double pan = 0.0;
        bool moving = false;
        uint64_t http_connections = 0; // TCP connections accepted per port since start
        uint64_t https_connections = 0;
        uint64_t requests = 0;     // requests logged since start
        double pan_speed = 0.0; // last continuous speeds commanded, -100 to 100
        double tilt_speed = 0.0;
        uint64_t rtsp_clients = 0; // metadata stream clients connected now
        uint64_t rtsp_packets = 0; // metadata packets sent since start
        std::string json;          // the whole /status document
};

struct SimCameraRequest {
        int64_t t_us = 0;
        std::string scheme;
        std::string path; // e.g. "zelk-cgi/com/ptz.cgi?query=position"
        int status = 0;   // 0: never answered
};

class SimCameraProcess : public SimProcess {
public:
        // Starts sim-camera with these extra options (e.g. {"--fault", "https_only"}) and
        // waits for it to be ready; a test failure when it does not get ready.
        explicit SimCameraProcess(const std::vector<std::string> &options = {});
        ~SimCameraProcess() { stop(); } // before its directory goes

        const std::string &control_socket() const { return socket_; }

        // Each a test failure (and an empty or false result) unless answered 200.
        SimCameraStatus status();
        // Requests logged from seq since on; *next (when given) is where the next call starts.
        std::vector<SimCameraRequest> requests(uint64_t since = 0, uint64_t *next = nullptr);
        bool set_fault(const std::string &name, bool on);
        bool teleport(double pan, double tilt, double zoom);
        // Until the status meets condition; else a test failure naming what, with the last status.
        bool wait_for(const std::function<bool(const SimCameraStatus &)> &condition, const std::string &what,
                      double seconds = 10.0);

private:
        HttpAnswer control(const char *method, const std::string &path, const char *what);

        TempDir directory_{"sim-camera"};
        std::string socket_ = directory_.file("control.sock");
};
