#include "settings_load.h"

#include "persistent.h"
#include "settings.h"
#include "tracking.h"

#include <glib.h>

namespace {

// The tracking singletons, owned by start-up from the load to the cleanup.
PtzController *loaded_controller = nullptr;
TargetTracker *loaded_tracker = nullptr;

// Each value goes through its setter so that the load logs the same lines as a change.
void settings_load_values(void)
{
        double value;
        persistent_get_mounting_height(&value);
        settings_set_mounting_height(value);

        gboolean small, human, vehicle, unidentified;
        persistent_get_object_types(&small, &human, &vehicle, &unidentified);
        settings_set_object_types(small, human, vehicle, unidentified);

        gboolean home_enabled;
        persistent_get_return_to_home_enabled(&home_enabled);
        settings_set_return_to_home_enabled(home_enabled);

        int home_timeout;
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
        double kp, ki, kd;
        persistent_get_pan_pid(&kp, &ki, &kd);
        controller_set_pan_pid(kp, ki, kd);
        persistent_get_tilt_pid(&kp, &ki, &kd);
        controller_set_tilt_pid(kp, ki, kd);
}

} // namespace

void settings_load(void)
{
        loaded_controller = ptz_controller_create();
        loaded_tracker = target_tracker_create();
        tracking_core_attach(loaded_controller, loaded_tracker);

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
        settings_free_camera_connection();
        // Detached first, so nothing reaches them through the facade once they are gone.
        tracking_core_attach(nullptr, nullptr);
        g_clear_pointer(&loaded_tracker, target_tracker_destroy);
        g_clear_pointer(&loaded_controller, ptz_controller_destroy);
}
