// Inside the persistence module: the held key file and its typed, defaulted accessors.
// Each accessor logs its caller's message when it fails; without a held key file each
// raises GLib's failed-precondition report naming itself and returns its default.
#pragma once

#include <glib.h>

// The one configuration file.
#define PERSISTENT_PATH TRELVO_CONF_DIR "/trelvo.conf"

// NULL when no file is set up.
GKeyFile *persistent_key_file(void);
// Writes the whole held key file aside, owner-only, and renames it over the file. The first
// save after a load that failed part-way first keeps the damaged file as trelvo.conf.damaged
// (and fails, touching nothing, when it cannot). FALSE without a held key file.
gboolean persistent_save(GError **error);

double get_double(const gchar *group, const gchar *key, double default_value, const gchar *message);
void set_double(const gchar *group, const gchar *key, double value, const gchar *message);
// A new string the caller frees, also when the default is returned.
gchar *get_string(const gchar *group, const gchar *key, const gchar *default_value, const gchar *message);
void set_string(const gchar *group, const gchar *key, const gchar *value, const gchar *message);
gboolean get_boolean(const gchar *group, const gchar *key, gboolean default_value, const gchar *message);
void set_boolean(const gchar *group, const gchar *key, gboolean value, const gchar *message);
int get_integer(const gchar *group, const gchar *key, int default_value, const gchar *message);
void set_integer(const gchar *group, const gchar *key, int value, const gchar *message);
