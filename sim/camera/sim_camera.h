// The simulated camera's one record: its mechanics, what it says about itself, the
// credentials it accepts, the faults switched on, and what has been asked of it. Owned by
// main; the HTTP API, the RTSP stream and the control interface all work on it, on the
// main loop's thread.
#pragma once

#include "ptz_dynamics.h"

#include <bitset>
#include <cstdint>
#include <deque>
#include <string>

enum class CameraFault {
        https_only,        // nothing listens on the HTTP port
        redirect_https,    // the HTTP port redirects every request to HTTPS
        redirect_loop,     // each port redirects to the other scheme
        wrong_credentials, // the configured credentials are refused
        no_answer,         // requests are read and never answered
        zoom_half_scale,   // the reported zoom is half the zoom position
        stream_drop,       // metadata stream connections are closed while streaming
        huge_reply,        // every API reply's body grows past a mebibyte
        count,
};

enum class AuthSchemes { basic, digest, both };

struct CameraIdentity {
        std::string firmware = "9.80.1.0";
        bool metadata = true;
        std::string product_number = "ZPT-6100";
        int min_field_angle = 22; // tenths of a degree
        int max_field_angle = 629;
};

struct RequestRecord {
        uint64_t seq;
        int64_t t_us; // monotonic time the request was read
        std::string scheme;
        std::string path; // without the leading slash, query included
        unsigned status;  // 0: never answered
        std::string user; // empty: not authenticated
};

struct SimCamera {
        PtzState ptz;
        double home_pan = 0.0;
        double home_tilt = 0.0;
        double home_zoom = 1.0;
        CameraIdentity identity;
        std::string user = "root";
        std::string password = "pass";
        AuthSchemes auth = AuthSchemes::both;
        std::bitset<static_cast<size_t>(CameraFault::count)> faults;
        std::deque<RequestRecord> requests; // the latest sim_camera_request_log_size
        uint64_t next_request_seq = 0;
};

constexpr size_t sim_camera_request_log_size = 100000;

const char *sim_camera_fault_name(CameraFault fault);
bool sim_camera_fault_from_name(const char *name, CameraFault *fault);
bool sim_camera_fault_on(const SimCamera &camera, CameraFault fault);

const char *sim_camera_auth_name(AuthSchemes schemes);
bool sim_camera_auth_from_name(const char *name, AuthSchemes *schemes);

// Zoom position as the camera reports it: rounded, halved under zoom_half_scale.
int sim_camera_reported_zoom(const SimCamera &camera);
// Whether the firmware offers the PTZ metadata stream, by the rule the service's probe
// applies: metadata "yes" and version 5.55.1.3 or later, or a cvp/cfp firmware.
bool sim_camera_offers_stream(const CameraIdentity &identity);

// Appends a record (its seq assigned here) and forgets the oldest beyond the log size.
// Returns the seq.
uint64_t sim_camera_log_request(SimCamera *camera, RequestRecord record);
