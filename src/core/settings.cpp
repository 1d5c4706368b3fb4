#include "settings.h"

#include "gmutex_tsan.h"
#include "log.h"

#include <atomic>

namespace {

// Scalars are atomics: the scene thread reads the mounting height, the tilt offset and
// the class switches while the main loop may change them, and must never see half a
// double (32-bit ARM stores a double in two halves).
struct SettingsStore {
        std::atomic<double> mounting_height{4.0};
        std::atomic<int> return_to_home_enabled{0};
        std::atomic<int> track_small{0};
        std::atomic<int> track_human{1};
        std::atomic<int> track_vehicle{1};
        std::atomic<int> track_unidentified{0};
        std::atomic<int> return_to_home_timeout{25};
        std::atomic<double> pan_offset{0.0};
        std::atomic<double> tilt_offset{0.0};
        std::atomic<double> zoom_degree{100.0};

        GMutex connection_mutex;
        gchar *camera_ip = nullptr;
        gchar *camera_user = nullptr;
        gchar *camera_pass = nullptr;
};

SettingsStore settings;

constexpr auto relaxed = std::memory_order_relaxed;

} // namespace

void settings_free_camera_connection(void)
{
        gmutex_tsan_lock(&settings.connection_mutex);
        g_clear_pointer(&settings.camera_ip, g_free);
        g_clear_pointer(&settings.camera_user, g_free);
        g_clear_pointer(&settings.camera_pass, g_free);
        gmutex_tsan_unlock(&settings.connection_mutex);
}

void settings_set_mounting_height(double height)
{
        log_info("%sSetting mounting height to %f", height);
        settings.mounting_height.store(height, relaxed);
}

double settings_get_mounting_height(void)
{
        return settings.mounting_height.load(relaxed);
}

void settings_set_return_to_home_enabled(gboolean enabled)
{
        log_info("%sSetting return to home enabled status to %i (0=false, 1=true)", enabled);
        settings.return_to_home_enabled.store(enabled, relaxed);
}

gboolean settings_get_return_to_home_enabled(void)
{
        return settings.return_to_home_enabled.load(relaxed);
}

void settings_set_object_types(gboolean small, gboolean human, gboolean vehicle,
                               gboolean unidentified)
{
        log_info("%sSetting object types to track - small:%i, human:%i, vehicle:%i, unidentified:%i",
                 small, human, vehicle, unidentified);
        settings.track_small.store(small, relaxed);
        settings.track_human.store(human, relaxed);
        settings.track_vehicle.store(vehicle, relaxed);
        settings.track_unidentified.store(unidentified, relaxed);
}

void settings_get_object_types(gboolean *small, gboolean *human, gboolean *vehicle,
                               gboolean *unidentified)
{
        *small = settings.track_small.load(relaxed);
        *human = settings.track_human.load(relaxed);
        *vehicle = settings.track_vehicle.load(relaxed);
        *unidentified = settings.track_unidentified.load(relaxed);
}

void settings_set_return_to_home_timeout(int seconds)
{
        log_info("%sSetting return to home timeout to %i", seconds);
        settings.return_to_home_timeout.store(seconds, relaxed);
}

int settings_get_return_to_home_timeout(void)
{
        return settings.return_to_home_timeout.load(relaxed);
}

void settings_set_pan_offset(double degrees)
{
        log_info("%sSetting pan offset to %f", degrees);
        settings.pan_offset.store(degrees, relaxed);
}

double settings_get_pan_offset(void)
{
        return settings.pan_offset.load(relaxed);
}

void settings_set_tilt_offset(double degrees)
{
        log_info("%sSetting tilt offset to %f", degrees);
        settings.tilt_offset.store(degrees, relaxed);
}

double settings_get_tilt_offset(void)
{
        return settings.tilt_offset.load(relaxed);
}

void settings_set_zoom_degree(double percent)
{
        log_info("%sSetting zoom degree to %f", percent);
        settings.zoom_degree.store(percent, relaxed);
}

double settings_get_zoom_degree(void)
{
        return settings.zoom_degree.load(relaxed);
}

void settings_set_camera_connection(const gchar *ip, const gchar *user, const gchar *pass)
{
        gmutex_tsan_lock(&settings.connection_mutex);
        if (g_strcmp0(ip, settings.camera_ip) == 0 && g_strcmp0(user, settings.camera_user) == 0 &&
            g_strcmp0(pass, settings.camera_pass) == 0) {
                gmutex_tsan_unlock(&settings.connection_mutex);
                return;
        }
        g_free(settings.camera_ip);
        g_free(settings.camera_user);
        g_free(settings.camera_pass);
        if (ip && *ip && user && *user)
                log_info("%sSetting connection to %s@%s", user, ip);
        settings.camera_ip = g_strdup(ip);
        settings.camera_user = g_strdup(user);
        settings.camera_pass = g_strdup(pass);
        gmutex_tsan_unlock(&settings.connection_mutex);
}

void settings_get_camera_connection(gchar **ip, gchar **user, gchar **pass)
{
        gmutex_tsan_lock(&settings.connection_mutex);
        g_free(*ip);
        g_free(*user);
        g_free(*pass);
        *ip = g_strdup(settings.camera_ip);
        *user = g_strdup(settings.camera_user);
        *pass = g_strdup(settings.camera_pass);
        gmutex_tsan_unlock(&settings.connection_mutex);
}
