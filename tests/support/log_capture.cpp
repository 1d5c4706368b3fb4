#include "log_capture.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <mutex>

namespace {

std::mutex capture_mutex;
std::vector<std::string> captured;

const char *capture_level_name(GLogLevelFlags level)
{
        if (level & (1 << G_LOG_LEVEL_USER_SHIFT))
                return "ERROR";
        if (level & G_LOG_LEVEL_CRITICAL)
                return "CRITICAL";
        if (level & G_LOG_LEVEL_WARNING)
                return "WARNING";
        if (level & G_LOG_LEVEL_MESSAGE)
                return "MESSAGE";
        if (level & G_LOG_LEVEL_INFO)
                return "INFO";
        return "DEBUG";
}

void capture_handler(const gchar *, GLogLevelFlags level, const gchar *message, gpointer)
{
        if (level & G_LOG_LEVEL_DEBUG)
                return;
        std::lock_guard lock(capture_mutex);
        captured.push_back(std::string(capture_level_name(level)) + ": " + (message ? message : ""));
}

} // namespace

LogCapture::LogCapture()
{
        clear();
        install();
}

void LogCapture::install()
{
        g_log_set_default_handler(capture_handler, nullptr);
}

LogCapture::~LogCapture()
{
        g_log_set_default_handler(g_log_default_handler, nullptr);
}

std::vector<std::string> LogCapture::lines() const
{
        std::lock_guard lock(capture_mutex);
        return captured;
}

std::vector<std::string> lines_containing(const std::vector<std::string> &lines, const std::string &text)
{
        std::vector<std::string> out;
        for (const std::string &line : lines)
                if (line.find(text) != std::string::npos)
                        out.push_back(line);
        return out;
}

void LogCapture::expect_lines(const Lines &want) const
{
        const Lines got = lines();
        ASSERT_EQ(got.size(), want.size()) << ::testing::PrintToString(got);
        for (size_t i = 0; i < want.size(); i++) {
                const size_t n = want[i].ends_with('*') ? want[i].size() - 1 : std::string::npos;
                EXPECT_EQ(got[i].substr(0, n), want[i].substr(0, n)) << "line " << i;
        }
}

void LogCapture::clear()
{
        std::lock_guard lock(capture_mutex);
        captured.clear();
}
