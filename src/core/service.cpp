#include "service.h"

#include "log.h"
#include "zk_log.h"

#include <glib-unix.h>
#include <signal.h>

namespace {

gboolean on_quit_signal(gpointer user_data)
{
        g_main_loop_quit(static_cast<GMainLoop *>(user_data));
        return FALSE;
}

bool service_start(std::span<const ServiceStep> steps)
{
        for (const ServiceStep &step : steps) {
                log_debug("%sSetting up: %s", step.name);
                if (step.setup())
                        continue;
                if (step.failure_message) {
                        // The messages are the step table's own literals, each with one "%s".
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
                        g_log(NULL, TRELVO_LOG_LEVEL_ERROR, step.failure_message, "");
#pragma GCC diagnostic pop
                }
                return false;
        }
        return true;
}

// The quit signals as sources of their own, so that they can be removed with the loop
// they point at (a second run in the same process must not quit a freed loop).
GSource *service_add_quit_signal(int signum, GMainLoop *loop)
{
        GSource *source = g_unix_signal_source_new(signum);
        g_source_set_callback(source, on_quit_signal, loop, nullptr);
        g_source_attach(source, nullptr);
        return source;
}

void service_remove_quit_signal(GSource *source)
{
        g_source_destroy(source);
        g_source_unref(source);
}

void service_stop(std::span<const ServiceTeardown> teardowns)
{
        for (const ServiceTeardown &teardown : teardowns) {
                log_debug("%sTearing down: %s", teardown.name);
                teardown.teardown();
        }
}

} // namespace

int service_run(int argc, char **argv, std::span<const ServiceStep> steps,
                std::span<const ServiceTeardown> teardowns)
{
        zk_log_stdout(argc, argv);
        GMainLoop *loop = g_main_loop_new(NULL, FALSE);
        GSource *sigint = service_add_quit_signal(SIGINT, loop);
        GSource *sigterm = service_add_quit_signal(SIGTERM, loop);

        const bool started = service_start(steps);
        if (started) {
                log_debug("%sRunning");
                g_main_loop_run(loop);
        }
        service_remove_quit_signal(sigint);
        service_remove_quit_signal(sigterm);
        if (started)
                g_main_loop_unref(loop);
        service_stop(teardowns);
        if (!started)
                g_main_loop_unref(loop);
        return started ? 0 : 1;
}
