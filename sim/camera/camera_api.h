// The simulated camera's HTTP API on its HTTP and HTTPS ports: the PTZ and parameter
// CGIs behind Basic and Digest authentication, the HTTP-level faults, and the count of
// TCP connections accepted on each port.
#pragma once

#include "sim_camera.h"

#include <gio/gio.h>

#include <cstdint>
#include <string>

struct CameraApiConfig {
        std::string address = "127.0.0.1"; // IPv4 or IPv6 literal
        std::string interface;             // scope of an IPv6 link-local address
        uint16_t http_port = 80;
        uint16_t https_port = 443;
};

// Makes the certificate and opens both ports (the HTTP port stays closed while
// https_only is on). False with *error set when a port cannot be opened.
bool simcam_api_setup(SimCamera *camera, const CameraApiConfig &config, GError **error);
void simcam_api_teardown(void);
// Applies changed faults and authentication schemes: opens or closes the HTTP port
// (closing drops its open connections), offers the schemes now configured.
void simcam_api_refresh(void);

// TCP connections accepted since start on the HTTP and on the HTTPS port.
uint64_t simcam_api_http_connections(void);
uint64_t simcam_api_https_connections(void);

// The address to listen on with its scope: for the RTSP port as well.
GSocketAddress *simcam_api_socket_address(const CameraApiConfig &config, uint16_t port, GError **error);
