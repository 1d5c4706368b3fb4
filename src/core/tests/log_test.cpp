#include "log.h"
#include "zk_log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace {

// What the calls print on standard output.
template <typename Calls> std::string printed(Calls calls)
{
        int out[2];
        EXPECT_EQ(pipe(out), 0);
        fflush(stdout);
        const int saved = dup(STDOUT_FILENO);
        dup2(out[1], STDOUT_FILENO);
        calls();
        fflush(stdout);
        dup2(saved, STDOUT_FILENO);
        close(saved);
        close(out[1]);
        std::string text;
        char buffer[4096];
        for (ssize_t n; (n = read(out[0], buffer, sizeof(buffer))) > 0;)
                text.append(buffer, static_cast<size_t>(n));
        close(out[0]);
        return text;
}

// Start-up step 1: one line per message, "<program>: <LEVEL>: <message>", from any thread
// and from structured logging alike; debug lines only when G_MESSAGES_DEBUG asks.
TEST(LogSetup, EveryMessageIsOneLineWithProgramAndLevel)
{
        char program[] = "/usr/bin/trelvo";
        char *argv[] = {program, nullptr};
        g_unsetenv("G_MESSAGES_DEBUG");
        const std::string text = printed([&] {
                zk_log_stdout(1, argv);
                log_error("%sstep %d failed", 3);
                log_warning("%ssave failed");
                log_info("%sSetting zoom degree to %f", 50.0);
                log_debug("%snot shown");
                std::thread([] { log_info("%sfrom the scene thread"); }).join();
                const GLogField fields[] = {{"MESSAGE", "structured", -1}, {"GLIB_DOMAIN", "gio", -1}};
                g_log_structured_array(G_LOG_LEVEL_CRITICAL, fields, G_N_ELEMENTS(fields));
                // A library's debug line shows when G_MESSAGES_DEBUG names its domain.
                g_setenv("G_MESSAGES_DEBUG", "gio", TRUE);
                const GLogField gio[] = {{"GLIB_DOMAIN", "gio", -1}, {"MESSAGE", "gio debug", -1}};
                g_log_structured_array(G_LOG_LEVEL_DEBUG, gio, G_N_ELEMENTS(gio));
                g_setenv("G_MESSAGES_DEBUG", "all", TRUE);
                log_debug("%sshown");
        });
        g_unsetenv("G_MESSAGES_DEBUG");
        g_log_set_default_handler(g_log_default_handler, nullptr);
        EXPECT_EQ(text, "trelvo: ERROR: step 3 failed\ntrelvo: WARNING: save failed\n"
                        "trelvo: INFO: Setting zoom degree to 50.000000\ntrelvo: INFO: from the scene thread\n"
                        "trelvo: CRITICAL: structured\ntrelvo: DEBUG: gio debug\ntrelvo: DEBUG: shown\n");
}

} // namespace
