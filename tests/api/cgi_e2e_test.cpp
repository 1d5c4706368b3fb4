// The configuration CGI of the real service over real HTTP, on the socket handed over as
// systemd does: what only the whole service shows, checked against its configuration file.
// What each method does and saves is cgi_test's, the library's rcgi_test's.
#include "service_process.h"
#include "temp_dir.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

std::string call(const ServiceProcess &service, const std::string &method, const char *params = nullptr)
{
        return cgi_outcome(service.cgi(cgi_call_body(method, params)));
}

// A file damaged in the middle: the service runs on what it read before the damage and the
// defaults, saves nothing until a change, and that change keeps the damaged file beside it.
TEST(CgiEndToEnd, ADamagedFileIsKeptBesideItWhenTheFirstChangeIsSaved)
{
        const TempDir dir{"trelvo-conf"};
        const std::string file = dir.file("trelvo.conf");
        const std::string damaged = "[camera]\nmounting_height=7.5\npan_offset=0\ntilt_offset=0\nip=\nuser=\npass=\n"
                                    "pan_kp=1\npan_ki=0\npan_kd=0\ntilt_kp=1\ntilt_ki=0\ntilt_kd=0\nname=\n"
                                    "zoom_degree=50\nzoom_correction=1\n\n@@ damage @@\n[tracking]\n"
                                    "return_to_home_timeout=120\n";
        ASSERT_TRUE(g_file_set_contents(file.c_str(), damaged.c_str(), -1, nullptr));
        ServiceProcess service({.conf_dir = dir.path()});
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        EXPECT_EQ(call(service, "getCameraMountingHeight"), R"(data:{"value":7.5,"minValue":1.0,"maxValue":16.0})");
        EXPECT_EQ(call(service, "getReturnToHomeTimeout"), R"(data:{"value":25,"minValue":1,"maxValue":300})");
        EXPECT_EQ(file_text(file), damaged) << "nothing saved before a change";
        EXPECT_EQ(call(service, "setCameraPanOffset", R"({"value": 12.5})"), "data:{}");
        EXPECT_EQ(file_text(file + ".damaged"), damaged);
        EXPECT_EQ(key_file_value(file, "camera", "pan_offset"), "12.5");
        EXPECT_EQ(key_file_value(file, "tracking", "return_to_home_timeout"), "(none)");
        EXPECT_EQ(service.stop(), 0);
}

// A client that never speaks, or stops half-way through its headers, holds up no one.
TEST(CgiEndToEnd, SilentClientsHoldUpNoOne)
{
        ServiceProcess service;
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        const int silent[] = {unix_connect(service.cgi_socket_path()), unix_connect(service.cgi_socket_path())};
        const std::string partial = "POST /zelk-cgi/trelvo.cgi HTTP/1.1\r\nHost: x\r\n";
        ASSERT_EQ(write(silent[1], partial.data(), partial.size()), static_cast<ssize_t>(partial.size()));
        EXPECT_EQ(call(service, "getCameraMountingHeight"), R"(data:{"value":4.0,"minValue":1.0,"maxValue":16.0})");
        for (int fd : silent)
                close(fd);
        EXPECT_EQ(service.stop(), 0);
}

} // namespace
