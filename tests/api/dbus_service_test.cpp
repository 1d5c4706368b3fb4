// The D-Bus control service of the real binary, called by real clients on a private bus,
// and its main-loop source in this process.
#include "dbus_service.h"
#include "log_capture.h"
#include "private_bus.h"
#include "service_process.h"
#include "temp_dir.h"

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr const char *trelvo = "com.zelk.Trelvo1";
constexpr const char *trelvo_path = "/com/zelk/Trelvo1";
constexpr const char *properties = "org.freedesktop.DBus.Properties";

// A client connection of the test's own to a bus.
struct Client {
        explicit Client(const std::string &address) : connection(private_bus_connect(address)) {}
        ~Client() { g_clear_object(&connection); }

        // The reply as text; "" with the error's D-Bus name in *error_name (expected), or a
        // test failure (not expected).
        std::string call(const char *interface, const char *method, GVariant *args, std::string *error_name = nullptr,
                         const char *name = trelvo, const char *path = trelvo_path)
        {
                g_autoptr(GVariant) reply = private_bus_call(connection, name, path, interface, method, args, error_name);
                return reply ? taken(g_variant_print(reply, FALSE)) : "";
        }
        std::string tracking_enabled() { return call(properties, "Get", g_variant_new("(ss)", trelvo, "TrackingEnabled")); }
        std::string set_tracking_enabled(gboolean on) { return call(trelvo, "SetTrackingEnabled", g_variant_new("(b)", on)); }
        bool owned()
        {
                return call("org.freedesktop.DBus", "NameHasOwner", g_variant_new("(s)", trelvo), nullptr,
                            "org.freedesktop.DBus", "/org/freedesktop/DBus") == "(true,)";
        }

        GDBusConnection *connection;
};

// A second instance on the same bus cannot take the name and stops, while the first goes
// on serving.
TEST(DbusService, SetTrackingEnabledSwitchesTheValueAndTheFileWhileBadCallsAndASecondInstanceChangeNothing)
{
        const TempDir dir{"trelvo-conf"};
        const std::string file = dir.file("trelvo.conf");
        ServiceProcess service({.conf_dir = dir.path()});
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        ServiceProcess second({.bus = ServiceBus::existing, .bus_address = service.bus_address()});
        EXPECT_EQ(second.wait_exit(), 1);
        EXPECT_EQ(second.matching("ERROR"), (Lines{"trelvo: ERROR: Failed to acquire service name: File exists",
                                                   "trelvo: ERROR: Failed to setup dbus"}));
        Client client(service.bus_address());

        EXPECT_EQ(client.tracking_enabled(), "(<false>,)");
        EXPECT_EQ(client.set_tracking_enabled(TRUE), "()");
        EXPECT_NE(file_text(file).find("[tracking]\nenabled=true\n"), std::string::npos) << file_text(file);

        // Writing the read-only property (a wrong argument type is sd-bus's own to refuse).
        std::string error;
        EXPECT_EQ(client.call(properties, "Set",
                              g_variant_new("(ssv)", trelvo, "TrackingEnabled", g_variant_new_boolean(FALSE)), &error),
                  "");
        EXPECT_EQ(error, "org.freedesktop.DBus.Error.PropertyReadOnly");
        EXPECT_EQ(client.tracking_enabled(), "(<true>,)");

        EXPECT_EQ(client.set_tracking_enabled(FALSE), "()");
        EXPECT_EQ(client.tracking_enabled(), "(<false>,)");
        EXPECT_NE(file_text(file).find("[tracking]\nenabled=false\n"), std::string::npos);
        EXPECT_TRUE(service.matching("ERROR").empty() && service.matching("WARNING").empty());
        EXPECT_EQ(service.stop(), 0);
}

// Between calls the main loop sleeps on the bus descriptor alone: sd-bus has no time-out
// pending, so nothing wakes the service. A call to a peer that never answers ends at its
// time-out, with no input. Cleanup gives the name back, and all it held.
TEST(DbusSource, TheLoopWaitsForInputAloneUnlessACallsTimeOutIsPending)
{
        PrivateBus bus;
        LogCapture log;
        DbusService *service = nullptr;
        ASSERT_EQ(dbus_setup(&service), 1);
        while (g_main_context_iteration(nullptr, FALSE)) {
        }

        // One turn of the loop up to its poll: the time-out it would wait (0 when a source is
        // ready), and the descriptors it would watch.
        GMainContext *context = g_main_context_default();
        GPollFD fds[2];
        gint n = 0;
        const auto next_wait_ms = [&] {
                gint priority = 0, timeout = 0;
                EXPECT_TRUE(g_main_context_acquire(context));
                g_main_context_prepare(context, &priority);
                n = g_main_context_query(context, priority, &timeout, fds, 2);
                for (GPollFD &fd : fds)
                        fd.revents = 0;
                g_main_context_check(context, priority, fds, std::min(n, 2));
                g_main_context_release(context);
                return timeout;
        };
        EXPECT_EQ(next_wait_ms(), -1);
        // The context's own wake-up descriptor and the bus connection, both for input only.
        ASSERT_EQ(n, 2);
        for (const GPollFD &fd : fds)
                EXPECT_EQ(fd.events, G_IO_IN);

        sd_bus *connection = nullptr, *silent = nullptr; // the service's (this thread's default); one never read
        const char *silent_name = nullptr;
        ASSERT_GE(sd_bus_default_system(&connection), 0);
        ASSERT_GE(sd_bus_open_system(&silent), 0);
        ASSERT_GE(sd_bus_get_unique_name(silent, &silent_name), 0);
        std::string error;
        const auto call_silent = [&](uint64_t timeout_us) {
                const auto on_reply = [](sd_bus_message *reply, void *userdata, sd_bus_error *) {
                        *static_cast<std::string *>(userdata) = sd_bus_message_get_error(reply)->name;
                        return 0;
                };
                ASSERT_GE(sd_bus_set_method_call_timeout(connection, timeout_us), 0);
                ASSERT_GE(sd_bus_call_method_async(connection, nullptr, silent_name, "/", "org.example.Silent", "Wait",
                                                   on_reply, &error, nullptr), 0);
        };
        call_silent(1);
        EXPECT_TRUE(iterate_until([&] { return !error.empty(); }, 5.0));
        EXPECT_EQ(error, "org.freedesktop.DBus.Error.NoReply");
        // One still pending bounds the wait by its time-out: 1 s at most.
        call_silent(1'000'000);
        const gint pending_ms = next_wait_ms();
        EXPECT_TRUE(pending_ms > 0 && pending_ms <= 1000) << pending_ms;
        sd_bus_flush_close_unref(silent);
        sd_bus_unref(connection);
        Client client(bus.address());
        EXPECT_TRUE(client.owned());
        dbus_cleanup(service);
        // The bus gives the name back once it has seen the connection close.
        EXPECT_TRUE(poll_until([&] { return !client.owned(); }, child_default_wait_s));
        // Nothing of the first connection is held: a second set-up gets a bus of its own.
        ASSERT_EQ(dbus_setup(&service), 1); // 1: the name is ours
        dbus_cleanup(service);
        EXPECT_TRUE(log.lines().empty());
}

// busctl on the service's bus as the user nobody; its exit status and output.
std::pair<int, std::string> busctl_as_nobody(const std::string &address, const Lines &args)
{
        Lines argv = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "busctl", "--address=" + address};
        argv.insert(argv.end(), args.begin(), args.end());
        ChildProcess busctl(argv);
        const int status = busctl.wait_exit();
        std::string output;
        for (const std::string &line : busctl.lines())
                output += line + "\n";
        return {status, output};
}

// The installed bus policy: anyone may read the switch, only root (and the operators'
// group) may flip it, and only root (and the service's user) may own the name.
TEST(DbusPolicy, AnUnprivilegedCallerMayReadTrackingEnabledButNotSetItNorOwnTheName)
{
        if (geteuid() != 0)
                GTEST_SKIP() << "calling in as another user needs root (setpriv) and real uids on the bus";
        ServiceProcess service({.bus_config = TRELVO_POLICY_BUS_CONFIG});
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        const std::string address = service.bus_address();
        for (const Lines &refused : {Lines{"call", trelvo, trelvo_path, trelvo, "SetTrackingEnabled", "b", "true"},
                                     Lines{"call", "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                           "org.freedesktop.DBus", "RequestName", "su", trelvo, "0"}}) {
                const auto [status, output] = busctl_as_nobody(address, refused);
                EXPECT_NE(status, 0);
                EXPECT_NE(output.find("Access denied"), std::string::npos) << output;
        }

        // Root (this test) may switch it; nobody reads the new value.
        EXPECT_EQ(Client(address).set_tracking_enabled(TRUE), "()");
        EXPECT_EQ(busctl_as_nobody(address, {"get-property", trelvo, trelvo_path, trelvo, "TrackingEnabled"}),
                  std::make_pair(0, std::string("b true\n")));
        EXPECT_EQ(service.stop(), 0);
}

} // namespace
