// The service's log levels and the one way it logs.
#pragma once

#include <glib.h>

// The service's error level: the first user-defined GLib level.
#define TRELVO_LOG_LEVEL_ERROR ((GLogLevelFlags)(1 << G_LOG_LEVEL_USER_SHIFT))

// Every format starts with "%s", always given the empty prefix "".
#define log_error(fmt, ...) g_log(NULL, TRELVO_LOG_LEVEL_ERROR, fmt, "" __VA_OPT__(, ) __VA_ARGS__)
#define log_warning(fmt, ...) g_log(NULL, G_LOG_LEVEL_WARNING, fmt, "" __VA_OPT__(, ) __VA_ARGS__)
#define log_info(fmt, ...) g_log(NULL, G_LOG_LEVEL_INFO, fmt, "" __VA_OPT__(, ) __VA_ARGS__)
#define log_debug(fmt, ...) g_log(NULL, G_LOG_LEVEL_DEBUG, fmt, "" __VA_OPT__(, ) __VA_ARGS__)
