#include "key_file.h"

#include "log.h"
#include "persistent.h"

#include <glib/gstdio.h>

#include <cerrno>

namespace {

// Named for the failed-precondition reports, which print the checked expression.
GKeyFile *key_file = nullptr;

// The file holds the encrypted camera password: its owner alone may read it.
constexpr int file_mode = 0600;

// A file that loaded only in part is kept beside it, once, before the first save replaces
// it: that save writes only what was read up to the damage.
#define PERSISTENT_DAMAGED_PATH PERSISTENT_PATH ".damaged"

struct DamagedFile {
        bool pending;
        gchar *contents; // as loaded; NULL when the file could not be read at all
        gsize length;
};

DamagedFile damaged; // file-level, so it starts zeroed: only non-zero starts are written

void forget_damaged_file(void)
{
        g_clear_pointer(&damaged.contents, g_free);
        damaged = DamagedFile{};
}

// After a load that failed for another reason than a missing file.
void remember_damaged_file(void)
{
        forget_damaged_file();
        damaged.pending = true;
        if (!g_file_get_contents(PERSISTENT_PATH, &damaged.contents, &damaged.length, nullptr))
                damaged.contents = nullptr;
}

// The bytes as loaded, owner-only, over any older copy; a file that could not be read is
// moved aside whole instead. Until this succeeds no save may replace the file.
bool keep_damaged_file(GError **error)
{
        if (damaged.contents) {
                if (!g_file_set_contents_full(PERSISTENT_DAMAGED_PATH, damaged.contents,
                                              static_cast<gssize>(damaged.length), G_FILE_SET_CONTENTS_CONSISTENT,
                                              file_mode, error))
                        return false;
        } else if (g_rename(PERSISTENT_PATH, PERSISTENT_DAMAGED_PATH) == 0) {
                g_chmod(PERSISTENT_DAMAGED_PATH, file_mode);
        } else if (errno != ENOENT) {
                const int saved = errno;
                g_set_error(error, G_FILE_ERROR, g_file_error_from_errno(saved), "Failed to move %s aside: %s",
                            PERSISTENT_PATH, g_strerror(saved));
                return false;
        }
        log_warning("%sKept the damaged configuration file as %s", PERSISTENT_DAMAGED_PATH);
        forget_damaged_file();
        return true;
}

// A missing key read back: the default goes into the file so it fills itself in.
void write_back_default(const gchar *key)
{
        GError *error = nullptr;
        if (!persistent_save(&error)) {
                log_error("%sFailed to save default value of '%s' to file: %s", key,
                          error ? error->message : "(unknown)");
        }
        g_clear_error(&error);
}

// After a failed read: true when the key alone is missing, so that the caller stores
// its default and writes it back. Any other failure (no group, a value of the wrong
// type) is logged and leaves the file untouched. Clears the error either way.
bool key_missing(GError **error, const gchar *message)
{
        const bool missing = g_error_matches(*error, G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_KEY_NOT_FOUND);
        if (!missing)
                log_warning("%s%s %s, error(%d): %s", message, PERSISTENT_PATH, (*error)->code, (*error)->message);
        g_clear_error(error);
        return missing;
}

// Saves after a write; a failure is reported in the caller's words, then with its reason
// (the switches name their key). The value stays in memory and reaches the file with the
// next save that succeeds.
void save_after_write(const gchar *message, const gchar *key = nullptr)
{
        GError *error = nullptr;
        if (!persistent_save(&error)) {
                log_warning("%s%s", message);
                if (key)
                        log_warning("%sError saving key '%s': %s", key, error->message);
                else
                        log_warning("%serror: %s", error->message);
        }
        g_clear_error(&error);
}

// The keys of a newly created file, in the order they appear in it.
void fill_defaults(GKeyFile *file)
{
        g_key_file_set_double(file, "camera", "mounting_height", 4.0);
        g_key_file_set_double(file, "camera", "pan_offset", 0.0);
        g_key_file_set_double(file, "camera", "tilt_offset", 0.0);
        g_key_file_set_string(file, "camera", "ip", "");
        g_key_file_set_string(file, "camera", "user", "");
        g_key_file_set_string(file, "camera", "pass", "");
        g_key_file_set_double(file, "camera", "pan_kp", 1.0);
        g_key_file_set_double(file, "camera", "pan_ki", 0.0);
        g_key_file_set_double(file, "camera", "pan_kd", 0.0);
        g_key_file_set_double(file, "camera", "tilt_kp", 1.0);
        g_key_file_set_double(file, "camera", "tilt_ki", 0.0);
        g_key_file_set_double(file, "camera", "tilt_kd", 0.0);
        g_key_file_set_string(file, "camera", "name", "");
        g_key_file_set_boolean(file, "tracking", "enabled", FALSE);
        g_key_file_set_boolean(file, "tracking", "guard_tour_enabled", FALSE);
        g_key_file_set_double(file, "tracking", "guard_tour_time", 4.0);
        g_key_file_set_boolean(file, "tracking", "return_to_home_enabled", FALSE);
        g_key_file_set_integer(file, "tracking", "return_to_home_timeout", 25);
        g_key_file_set_boolean(file, "tracking", "small_object_track", FALSE);
        g_key_file_set_boolean(file, "tracking", "human_object_track", TRUE);
        g_key_file_set_boolean(file, "tracking", "vehicle_object_track", TRUE);
        g_key_file_set_boolean(file, "tracking", "unidentified_object_track", FALSE);
}

gboolean create_default_file(void)
{
        fill_defaults(key_file);
        GError *error = nullptr;
        if (persistent_save(&error))
                return TRUE;
        log_warning("%sFailed to write configuration to file, path: %s, error: %s", PERSISTENT_PATH,
                    error ? error->message : "(unknown)");
        g_clear_error(&error);
        g_clear_pointer(&key_file, g_key_file_free);
        return FALSE;
}

} // namespace

GKeyFile *persistent_key_file(void)
{
        return key_file;
}

gboolean persistent_save(GError **error)
{
        // Without a key file there is nothing to write: saving would empty the file.
        if (!key_file) {
                g_set_error_literal(error, G_FILE_ERROR, G_FILE_ERROR_FAILED, "No configuration file is loaded");
                return FALSE;
        }
        if (damaged.pending && !keep_damaged_file(error))
                return FALSE;
        gsize length;
        gchar *data = g_key_file_to_data(key_file, &length, nullptr);
        const gboolean saved = g_file_set_contents_full(PERSISTENT_PATH, data, static_cast<gssize>(length),
                                                        G_FILE_SET_CONTENTS_CONSISTENT, file_mode, error);
        g_free(data);
        return saved;
}

gboolean persistent_setup(void)
{
        g_clear_pointer(&key_file, g_key_file_free);
        forget_damaged_file();
        key_file = g_key_file_new();

        GError *error = nullptr;
        if (g_key_file_load_from_file(key_file, PERSISTENT_PATH, G_KEY_FILE_NONE, &error))
                return TRUE;
        if (g_error_matches(error, G_FILE_ERROR, G_FILE_ERROR_NOENT)) {
                g_clear_error(&error);
                return create_default_file();
        }
        // An unreadable or malformed file: run on defaults; the first change saves anew.
        log_warning("%sFailed to read configuration from file, path: %s, error: %s", PERSISTENT_PATH,
                    error ? error->message : "(unknown)");
        g_clear_error(&error);
        remember_damaged_file();
        return TRUE;
}

void persistent_cleanup(void)
{
        g_clear_pointer(&key_file, g_key_file_free);
        forget_damaged_file();
}

double get_double(const gchar *group, const gchar *key, double default_value, const gchar *message)
{
        g_return_val_if_fail(key_file, default_value);
        GError *error = nullptr;
        const double value = g_key_file_get_double(key_file, group, key, &error);
        if (!error)
                return value;
        if (key_missing(&error, message)) {
                g_key_file_set_double(key_file, group, key, default_value);
                write_back_default(key);
        }
        return default_value;
}

void set_double(const gchar *group, const gchar *key, double value, const gchar *message)
{
        g_return_if_fail(key_file);
        g_key_file_set_double(key_file, group, key, value);
        save_after_write(message);
}

gchar *get_string(const gchar *group, const gchar *key, const gchar *default_value, const gchar *message)
{
        g_return_val_if_fail(key_file, g_strdup(default_value));
        GError *error = nullptr;
        gchar *value = g_key_file_get_string(key_file, group, key, &error);
        if (!error)
                return value;
        if (key_missing(&error, message)) {
                g_key_file_set_string(key_file, group, key, default_value);
                write_back_default(key);
        }
        return g_strdup(default_value);
}

void set_string(const gchar *group, const gchar *key, const gchar *value, const gchar *message)
{
        g_return_if_fail(key_file);
        g_key_file_set_string(key_file, group, key, value);
        save_after_write(message);
}

gboolean get_boolean(const gchar *group, const gchar *key, gboolean default_value, const gchar *message)
{
        g_return_val_if_fail(key_file, default_value);
        GError *error = nullptr;
        const gboolean value = g_key_file_get_boolean(key_file, group, key, &error);
        if (!error)
                return value;
        if (key_missing(&error, message)) {
                g_key_file_set_boolean(key_file, group, key, default_value);
                write_back_default(key);
        }
        return default_value;
}

void set_boolean(const gchar *group, const gchar *key, gboolean value, const gchar *message)
{
        g_return_if_fail(key_file);
        g_key_file_set_boolean(key_file, group, key, value);
        save_after_write(message, key);
}

int get_integer(const gchar *group, const gchar *key, int default_value, const gchar *message)
{
        g_return_val_if_fail(key_file, default_value);
        GError *error = nullptr;
        const int value = g_key_file_get_integer(key_file, group, key, &error);
        if (!error)
                return value;
        if (key_missing(&error, message)) {
                g_key_file_set_integer(key_file, group, key, default_value);
                write_back_default(key);
        }
        return default_value;
}

void set_integer(const gchar *group, const gchar *key, int value, const gchar *message)
{
        g_return_if_fail(key_file);
        g_key_file_set_integer(key_file, group, key, value);
        save_after_write(message);
}
