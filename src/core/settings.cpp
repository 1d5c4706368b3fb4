#include "settings.h"

#include "log.h"
#include "persistent.h"
#include "tracking.h"

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

        // The tracking singletons, owned here from the load to the cleanup.
        PtzController *controller = nullptr;
        TargetTracker *tracker = nullptr;
};

SettingsStore settings;

constexpr auto relaxed = std::memory_order_relaxed;

void settings_free_connection(void)
{
        g_clear_pointer(&settings.camera_ip, g_free);
        g_clear_pointer(&settings.camera_user, g_free);
        g_clear_pointer(&settings.camera_pass, g_free);
}

// Each value goes through its setter so that the load logs the same lines as a change.
void settings_load_values(void)
{
        double value = 0.0;
        persistent_get_mounting_height(&value);
        settings_set_mounting_height(value);

        gboolean small = FALSE, human = FALSE, vehicle = FALSE, unidentified = FALSE;
        persistent_get_object_types(&small, &human, &vehicle, &unidentified);
        settings_set_object_types(small, human, vehicle, unidentified);

        gboolean home_enabled = FALSE;
        persistent_get_return_to_home_enabled(&home_enabled);
        settings_set_return_to_home_enabled(home_enabled);

        int home_timeout = 0;
        persistent_get_return_to_home_timeout(&home_timeout);
        settings_set_return_to_home_timeout(home_timeout);

        persistent_get_pan_offset(&value);
        settings_set_pan_offset(value);
        persistent_get_tilt_offset(&value);
        settings_set_tilt_offset(value);
        persistent_get_zoom_degree(&value);
        settings_set_zoom_degree(value);
}

// The controller keeps the gains; the store holds no copy.
void settings_load_gains(void)
{
        double kp = 0.0, ki = 0.0, kd = 0.0;
        persistent_get_pan_pid(&kp, &ki, &kd);
        controller_set_pan_pid(kp, ki, kd);
        persistent_get_tilt_pid(&kp, &ki, &kd);
        controller_set_tilt_pid(kp, ki, kd);
}

} // namespace

void settings_load(void)
{
        settings.controller = ptz_controller_create();
        settings.tracker = target_tracker_create();
        tracking_core_attach(settings.controller, settings.tracker);

        gchar *ip = nullptr, *user = nullptr, *pass = nullptr;
        persistent_get_camera_connection(&ip, &user, &pass);
        settings_set_camera_connection(ip, user, pass);
        settings_load_values();
        settings_load_gains();
        g_free(ip);
        g_free(user);
        g_free(pass);
}

void settings_cleanup(void)
{
        settings_free_connection();
        // Detached first, so nothing reaches them through the facade once they are gone.
        tracking_core_attach(nullptr, nullptr);
        g_clear_pointer(&settings.tracker, target_tracker_destroy);
        g_clear_pointer(&settings.controller, ptz_controller_destroy);
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
        g_mutex_lock(&settings.connection_mutex);
        if (g_strcmp0(ip, settings.camera_ip) == 0 && g_strcmp0(user, settings.camera_user) == 0 &&
            g_strcmp0(pass, settings.camera_pass) == 0) {
                g_mutex_unlock(&settings.connection_mutex);
                return;
        }
        settings_free_connection();
        if (ip && *ip && user && *user)
                log_info("%sSetting connection to %s@%s", user, ip);
        settings.camera_ip = g_strdup(ip);
        settings.camera_user = g_strdup(user);
        settings.camera_pass = g_strdup(pass);
        g_mutex_unlock(&settings.connection_mutex);
}

void settings_get_camera_connection(gchar **ip, gchar **user, gchar **pass)
{
        g_mutex_lock(&settings.connection_mutex);
        g_free(*ip);
        g_free(*user);
        g_free(*pass);
        *ip = g_strdup(settings.camera_ip);
        *user = g_strdup(settings.camera_user);
        *pass = g_strdup(settings.camera_pass);
        g_mutex_unlock(&settings.connection_mutex);
}
