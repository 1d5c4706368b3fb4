#include "sim_camera.h"

#include <glib.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <tuple>

namespace {

constexpr std::array<const char *, static_cast<size_t>(CameraFault::count)> fault_names = {
        "https_only", "redirect_https", "redirect_loop", "wrong_credentials", "no_answer", "zoom_half_scale", "stream_drop",
        "huge_reply",
};

constexpr std::array<const char *, 3> auth_names = {"basic", "digest", "both"};

// The first firmware with the metadata stream.
constexpr std::tuple<int, int, int, int> first_stream_firmware{5, 55, 1, 3};

} // namespace

const char *sim_camera_fault_name(CameraFault fault)
{
        return fault_names.at(static_cast<size_t>(fault));
}

bool sim_camera_fault_from_name(const char *name, CameraFault *fault)
{
        for (size_t i = 0; i < fault_names.size(); i++) {
                if (g_strcmp0(name, fault_names[i]) == 0) {
                        *fault = static_cast<CameraFault>(i);
                        return true;
                }
        }
        return false;
}

bool sim_camera_fault_on(const SimCamera &camera, CameraFault fault)
{
        return camera.faults.test(static_cast<size_t>(fault));
}

const char *sim_camera_auth_name(AuthSchemes schemes)
{
        return auth_names.at(static_cast<size_t>(schemes));
}

bool sim_camera_auth_from_name(const char *name, AuthSchemes *schemes)
{
        for (size_t i = 0; i < auth_names.size(); i++) {
                if (g_strcmp0(name, auth_names[i]) == 0) {
                        *schemes = static_cast<AuthSchemes>(i);
                        return true;
                }
        }
        return false;
}

int sim_camera_reported_zoom(const SimCamera &camera)
{
        const int zoom = static_cast<int>(std::lround(camera.ptz.zoom.position));
        return sim_camera_fault_on(camera, CameraFault::zoom_half_scale) ? zoom / 2 : zoom;
}

bool sim_camera_offers_stream(const CameraIdentity &identity)
{
        if (!identity.metadata)
                return false;
        const char *version = identity.firmware.c_str();
        if (g_ascii_strncasecmp(version, "cvp", 3) == 0 || g_ascii_strncasecmp(version, "cfp", 3) == 0)
                return true;
        int major = 0, minor = 0, patch = 0, build = 0;
        if (sscanf(version, "%d.%d.%d.%d", &major, &minor, &patch, &build) < 2)
                return false;
        return std::tie(major, minor, patch, build) >= first_stream_firmware;
}

uint64_t sim_camera_log_request(SimCamera *camera, RequestRecord record)
{
        record.seq = camera->next_request_seq++;
        camera->requests.push_back(std::move(record));
        while (camera->requests.size() > sim_camera_request_log_size)
                camera->requests.pop_front();
        return camera->requests.back().seq;
}
