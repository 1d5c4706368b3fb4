#include "service.h"

#include "log.h"
#include "zk_log.h"

#include <glib-unix.h>
#include <cstdlib>
#include <signal.h>

namespace {

gboolean on_quit_signal(gpointer user_data)
{
        g_main_loop_quit(static_cast<GMainLoop *>(user_data));
        return G_SOURCE_CONTINUE;
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
        // Removed with the loop they point at: a second run in the same process must not
        // quit a freed loop.
        const guint sigint = g_unix_signal_add(SIGINT, on_quit_signal, loop);
        const guint sigterm = g_unix_signal_add(SIGTERM, on_quit_signal, loop);

        const bool started = service_start(steps);
        if (started) {
                log_debug("%sRunning");
                g_main_loop_run(loop);
        }
        g_source_remove(sigint);
        g_source_remove(sigterm);
        if (started)
                g_main_loop_unref(loop);
        service_stop(teardowns);
        if (!started)
                g_main_loop_unref(loop);
        return started ? EXIT_SUCCESS : EXIT_FAILURE;
}
