#include "zk_log.h"

#include <glib.h>
#include <stdio.h>

#define ZK_LOG_LEVEL_SERVICE_ERROR (1 << G_LOG_LEVEL_USER_SHIFT)

static gchar *zk_program;

static const char *zk_level_name(GLogLevelFlags level)
{
        if (level & ZK_LOG_LEVEL_SERVICE_ERROR)
                return "ERROR";
        if (level & G_LOG_LEVEL_ERROR)
                return "ERROR";
        if (level & G_LOG_LEVEL_CRITICAL)
                return "CRITICAL";
        if (level & G_LOG_LEVEL_WARNING)
                return "WARNING";
        if (level & G_LOG_LEVEL_MESSAGE)
                return "MESSAGE";
        if (level & G_LOG_LEVEL_INFO)
                return "INFO";
        if (level & G_LOG_LEVEL_DEBUG)
                return "DEBUG";
        return "LOG";
}

static void zk_write_line(const char *domain, GLogLevelFlags level, const char *message)
{
        if ((level & G_LOG_LEVEL_DEBUG) && g_log_writer_default_would_drop(G_LOG_LEVEL_DEBUG, domain))
                return;
        /* One write per line so that concurrent threads never interleave inside a line. */
        flockfile(stdout);
        fprintf(stdout, "%s: %s: %s\n", zk_program ? zk_program : "?", zk_level_name(level),
                message ? message : "(null)");
        fflush(stdout);
        funlockfile(stdout);
}

static void zk_log_handler(const gchar *domain, GLogLevelFlags level, const gchar *message,
                           gpointer user_data)
{
        (void)user_data;
        zk_write_line(domain, level, message);
}

static GLogWriterOutput zk_log_writer(GLogLevelFlags level, const GLogField *fields, gsize n_fields,
                                      gpointer user_data)
{
        const char *domain = NULL;
        const char *message = NULL;

        (void)user_data;
        for (gsize i = 0; i < n_fields; i++) {
                if (g_strcmp0(fields[i].key, "MESSAGE") == 0)
                        message = fields[i].value;
                else if (g_strcmp0(fields[i].key, "GLIB_DOMAIN") == 0)
                        domain = fields[i].value;
        }
        zk_write_line(domain, level, message);
        return G_LOG_WRITER_HANDLED;
}

void zk_log_stdout(int argc, char **argv)
{
        g_free(zk_program);
        zk_program = g_path_get_basename(argc > 0 && argv && argv[0] ? argv[0] : "trelvo");
        g_set_prgname(zk_program);
        g_log_set_default_handler(zk_log_handler, NULL);
        /* GLib accepts a writer only once per process. */
        static gsize writer_set;
        if (g_once_init_enter(&writer_set)) {
                g_log_set_writer_func(zk_log_writer, NULL, NULL);
                g_once_init_leave(&writer_set, 1);
        }
}
