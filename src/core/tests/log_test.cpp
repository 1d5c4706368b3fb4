#include "log.h"
#include "zk_log.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// One line per message, "<program>: <LEVEL>: <message>", structured ones too; debug lines
// only when G_MESSAGES_DEBUG asks. Error and warning lines are service_test's.
TEST(LogSetup, EveryMessageIsOneLineWithProgramAndLevel)
{
        char program[] = "/usr/bin/trelvo";
        char *argv[] = {program, nullptr};
        g_unsetenv("G_MESSAGES_DEBUG");
        testing::internal::CaptureStdout();
        zk_log_stdout(1, argv);
        log_info("%sSetting zoom degree to %f", 50.0);
        log_debug("%snot shown");
        const GLogField fields[] = {{"MESSAGE", "structured", -1}, {"GLIB_DOMAIN", "gio", -1}};
        g_log_structured_array(G_LOG_LEVEL_CRITICAL, fields, G_N_ELEMENTS(fields));
        // A library's debug line shows when G_MESSAGES_DEBUG names its domain.
        g_setenv("G_MESSAGES_DEBUG", "gio", TRUE);
        const GLogField gio[] = {{"GLIB_DOMAIN", "gio", -1}, {"MESSAGE", "gio debug", -1}};
        g_log_structured_array(G_LOG_LEVEL_DEBUG, gio, G_N_ELEMENTS(gio));
        g_setenv("G_MESSAGES_DEBUG", "all", TRUE);
        log_debug("%sshown");
        const std::string text = testing::internal::GetCapturedStdout();
        g_unsetenv("G_MESSAGES_DEBUG");
        g_log_set_default_handler(g_log_default_handler, nullptr);
        EXPECT_EQ(text, "trelvo: INFO: Setting zoom degree to 50.000000\ntrelvo: CRITICAL: structured\n"
                        "trelvo: DEBUG: gio debug\ntrelvo: DEBUG: shown\n");
        EXPECT_STREQ(g_get_prgname(), "trelvo") << "GLib's own messages name the service too";
}

} // namespace
