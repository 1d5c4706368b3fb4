// One getter and setter per persisted setting, each key through its own typed accessor
// (and so its own save: composite values are saved once per key).
#include "persistent.h"

#include "credentials.h"
#include "key_file.h"
#include "log.h"

void persistent_set_camera_connection(const gchar *ip, const gchar *user, const gchar *pass)
{
        gchar *encrypted = encrypt_password(pass);
        set_string("camera", "ip", ip, "Failed to save camera ip");
        set_string("camera", "user", user, "Failed to save camera user");
        set_string("camera", "pass", encrypted, "Failed to save camera password");
        g_free(encrypted);
}

void persistent_get_camera_connection(gchar **ip, gchar **user, gchar **pass)
{
        *ip = get_string("camera", "ip", "", "Failed to read camera ip from file");
        *user = get_string("camera", "user", "", "Failed to read camera user from file");
        gchar *encrypted = get_string("camera", "pass", "", "Failed to read camera password from file");
        *pass = decrypt_password(encrypted);
        g_free(encrypted);
}

void persistent_set_mounting_height(double height)
{
        set_double("camera", "mounting_height", height, "Failed to save camera mounting height");
}

void persistent_get_mounting_height(double *height)
{
        *height = get_double("camera", "mounting_height", 4.0, "Failed to read camera mounting height from file");
}

void persistent_set_pan_offset(double degrees)
{
        set_double("camera", "pan_offset", degrees, "Failed to save camera pan offset");
}

void persistent_get_pan_offset(double *degrees)
{
        *degrees = get_double("camera", "pan_offset", 0.0, "Failed to read camera pan offset from file");
}

void persistent_set_tilt_offset(double degrees)
{
        set_double("camera", "tilt_offset", degrees, "Failed to save camera tilt offset");
}

void persistent_get_tilt_offset(double *degrees)
{
        *degrees = get_double("camera", "tilt_offset", 0.0, "Failed to read camera tilt offset from file");
}

void persistent_set_zoom_degree(double percent)
{
        set_double("camera", "zoom_degree", percent, "Failed to save camera zoom degree");
}

void persistent_get_zoom_degree(double *percent)
{
        *percent = get_double("camera", "zoom_degree", 50.0, "Failed to read camera zoom degree from file");
}

gboolean persistent_set_camera_name(const gchar *name)
{
        GKeyFile *key_file = persistent_key_file();
        g_return_val_if_fail(key_file, FALSE);
        g_key_file_set_string(key_file, "camera", "name", name);
        GError *error = nullptr;
        if (persistent_save(&error))
                return TRUE;
        log_warning("%sFailed to save camera name");
        if (error)
                log_warning("%swarning: %s", error->message);
        g_clear_error(&error);
        return FALSE;
}

// The camera link tells a new camera model by this name, so a missing name stays
// missing: no default, nothing written back.
gboolean persistent_get_camera_name(gchar **name)
{
        GKeyFile *key_file = persistent_key_file();
        g_return_val_if_fail(key_file, FALSE);
        GError *error = nullptr;
        *name = g_key_file_get_string(key_file, "camera", "name", &error);
        const gboolean read = error == nullptr;
        g_clear_error(&error);
        return read;
}

void persistent_set_pan_pid(double kp, double ki, double kd)
{
        set_double("camera", "pan_kp", kp, "Failed to save camera pan PID");
        set_double("camera", "pan_ki", ki, "Failed to save camera pan PID");
        set_double("camera", "pan_kd", kd, "Failed to save camera pan PID");
}

void persistent_get_pan_pid(double *kp, double *ki, double *kd)
{
        *kp = get_double("camera", "pan_kp", 1.0, "Failed to read camera pan PID from file");
        *ki = get_double("camera", "pan_ki", 0.0, "Failed to read camera pan PID from file");
        *kd = get_double("camera", "pan_kd", 0.0, "Failed to read camera pan PID from file");
}

void persistent_set_tilt_pid(double kp, double ki, double kd)
{
        set_double("camera", "tilt_kp", kp, "Failed to save camera tilt PID");
        set_double("camera", "tilt_ki", ki, "Failed to save camera tilt PID");
        set_double("camera", "tilt_kd", kd, "Failed to save camera tilt PID");
}

void persistent_get_tilt_pid(double *kp, double *ki, double *kd)
{
        *kp = get_double("camera", "tilt_kp", 1.0, "Failed to read camera tilt PID from file");
        *ki = get_double("camera", "tilt_ki", 0.0, "Failed to read camera tilt PID from file");
        *kd = get_double("camera", "tilt_kd", 0.0, "Failed to read camera tilt PID from file");
}

void persistent_set_tracking_enabled(gboolean enabled)
{
        set_boolean("tracking", "enabled", enabled, "Failed to save tracking enabled");
}

gboolean persistent_get_tracking_enabled(void)
{
        return get_boolean("tracking", "enabled", FALSE, "Failed to read tracking enabled from file");
}

void persistent_set_guard_tour_enabled(gboolean enabled)
{
        set_boolean("tracking", "guard_tour_enabled", enabled, "Failed to save guard tour enabled");
}

gboolean persistent_get_guard_tour_enabled(void)
{
        return get_boolean("tracking", "guard_tour_enabled", FALSE, "Failed to read guard tour enabled from file");
}

void persistent_set_guard_tour_time(double seconds)
{
        set_double("tracking", "guard_tour_time", seconds, "Failed to save guard tour time");
}

float persistent_get_guard_tour_time(void)
{
        return static_cast<float>(
                get_double("tracking", "guard_tour_time", 4.0, "Failed to read guard tour time from file"));
}

void persistent_set_object_types(gboolean small, gboolean human, gboolean vehicle, gboolean unidentified)
{
        set_boolean("tracking", "small_object_track", small, "Failed to save tracking status for small objects");
        set_boolean("tracking", "human_object_track", human, "Failed to save tracking status for humans");
        set_boolean("tracking", "vehicle_object_track", vehicle, "Failed to save tracking status for vehicles");
        set_boolean("tracking", "unidentified_object_track", unidentified,
                    "Failed to save tracking status for unidentified objects");
}

void persistent_get_object_types(gboolean *small, gboolean *human, gboolean *vehicle, gboolean *unidentified)
{
        *small = get_boolean("tracking", "small_object_track", FALSE,
                             "Failed to read tracking status for small objects from file");
        *human = get_boolean("tracking", "human_object_track", TRUE,
                             "Failed to read tracking status for humans from file");
        *vehicle = get_boolean("tracking", "vehicle_object_track", TRUE,
                               "Failed to read tracking status for vehicles from file");
        *unidentified = get_boolean("tracking", "unidentified_object_track", FALSE,
                                    "Failed to read tracking status for unidentified objects from file");
}

void persistent_set_return_to_home_enabled(gboolean enabled)
{
        set_boolean("tracking", "return_to_home_enabled", enabled, "Failed to save return to home enabled");
}

void persistent_get_return_to_home_enabled(gboolean *enabled)
{
        *enabled = get_boolean("tracking", "return_to_home_enabled", FALSE,
                               "Failed to read return to home enabled from file");
}

void persistent_set_return_to_home_timeout(int seconds)
{
        set_integer("tracking", "return_to_home_timeout", seconds, "Failed to save return to home timeout");
}

void persistent_get_return_to_home_timeout(int *seconds)
{
        *seconds = get_integer("tracking", "return_to_home_timeout", 25,
                               "Failed to read return to home timeout from file");
}

void persistent_set_zoom_correction(double correction)
{
        set_double("camera", "zoom_correction", correction, "Failed to save zoom correction");
}

double persistent_get_zoom_correction(void)
{
        return get_double("camera", "zoom_correction", 1.0, "Failed to read camera zoom correction from file");
}
