// The D-Bus control service of the real binary, called by real clients on a private bus,
// and its main-loop source in this process.
#include "dbus_service.h"
#include "log_capture.h"
#include "private_bus.h"
#include "service_process.h"

#include <gio/gio.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <memory>

namespace {

using Lines = std::vector<std::string>;

constexpr const char *trelvo_name = "com.zelk.Trelvo1";
constexpr const char *trelvo_path = "/com/zelk/Trelvo1";
constexpr const char *trelvo_interface = "com.zelk.Trelvo1";
constexpr uid_t nobody = 65534;

// A client connection of the test's own to the service's bus.
class Client {
public:
        explicit Client(const std::string &address)
        {
                GError *error = nullptr;
                connection_ = g_dbus_connection_new_for_address_sync(
                        address.c_str(),
                        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                        nullptr, nullptr, &error);
                if (!connection_) {
                        ADD_FAILURE() << "cannot connect to " << address << ": " << error->message;
                        g_error_free(error);
                        return;
                }
                g_dbus_connection_set_exit_on_close(connection_, FALSE);
        }
        ~Client()
        {
                if (connection_)
                        g_object_unref(connection_);
        }

        // The call's reply, or "" with the error's D-Bus name in *error_name.
        std::string call(const char *interface, const char *method, GVariant *args, std::string *error_name = nullptr)
        {
                GError *error = nullptr;
                g_autoptr(GVariant) reply =
                        connection_ ? g_dbus_connection_call_sync(connection_, trelvo_name, trelvo_path, interface, method,
                                                                  args, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                                                                  &error)
                                    : nullptr;
                if (!reply) {
                        g_autofree gchar *name = error ? g_dbus_error_get_remote_error(error) : nullptr;
                        if (error_name)
                                *error_name = name ? name : "";
                        else
                                ADD_FAILURE() << method << ": " << (error ? error->message : "not connected");
                        g_clear_error(&error);
                        return "";
                }
                g_autofree gchar *text = g_variant_print(reply, FALSE);
                return text;
        }

        std::string tracking_enabled()
        {
                return call("org.freedesktop.DBus.Properties", "Get",
                            g_variant_new("(ss)", trelvo_interface, "TrackingEnabled"));
        }

private:
        GDBusConnection *connection_ = nullptr;
};

std::string file_text(const std::string &file)
{
        g_autofree gchar *data = nullptr;
        g_file_get_contents(file.c_str(), &data, nullptr, nullptr);
        return data ? data : "";
}

Lines teardown_trace(const ServiceProcess &service)
{
        return service.matching("Tearing down: ");
}

TEST(DbusService, SetTrackingEnabledSwitchesTheServedValueAndTheFileAndBadCallsChangeNothing)
{
        g_autofree gchar *dir = g_dir_make_tmp("trelvo-conf-XXXXXX", nullptr);
        const std::string file = std::string(dir) + "/trelvo.conf";
        ServiceOptions options;
        options.conf_dir = dir;
        ServiceProcess service(options);
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        Client client(service.bus_address());

        EXPECT_EQ(client.tracking_enabled(), "(<false>,)");
        EXPECT_EQ(client.call(trelvo_interface, "SetTrackingEnabled", g_variant_new("(b)", TRUE)), "()");
        EXPECT_EQ(client.tracking_enabled(), "(<true>,)");
        EXPECT_NE(file_text(file).find("[tracking]\nenabled=true\n"), std::string::npos) << file_text(file);

        // Wrong argument types, no argument, and writing the read-only property.
        const std::string before = file_text(file);
        std::string error;
        for (GVariant *args : {g_variant_new("(s)", "false"), g_variant_new("(i)", 0), g_variant_new("()")}) {
                EXPECT_EQ(client.call(trelvo_interface, "SetTrackingEnabled", args, &error), "");
                EXPECT_EQ(error, "org.freedesktop.DBus.Error.InvalidArgs");
        }
        EXPECT_EQ(client.call("org.freedesktop.DBus.Properties", "Set",
                              g_variant_new("(ssv)", trelvo_interface, "TrackingEnabled", g_variant_new_boolean(FALSE)),
                              &error),
                  "");
        EXPECT_EQ(error, "org.freedesktop.DBus.Error.PropertyReadOnly");
        EXPECT_EQ(client.tracking_enabled(), "(<true>,)");
        EXPECT_EQ(file_text(file), before);

        EXPECT_EQ(client.call(trelvo_interface, "SetTrackingEnabled", g_variant_new("(b)", FALSE)), "()");
        EXPECT_EQ(client.tracking_enabled(), "(<false>,)");
        EXPECT_NE(file_text(file).find("[tracking]\nenabled=false\n"), std::string::npos);
        EXPECT_TRUE(service.matching("ERROR").empty() && service.matching("WARNING").empty());

        service.send_signal(SIGTERM);
        EXPECT_EQ(service.wait_exit(), 0);
        g_unlink(file.c_str());
        g_rmdir(dir);
}

TEST(DbusService, ASecondInstanceCannotTakeTheNameAndStopsAfterEveryTeardown)
{
        ServiceProcess first;
        ASSERT_TRUE(first.wait_for_line("DEBUG: Running"));
        ServiceOptions options;
        options.bus = ServiceBus::existing;
        options.bus_address = first.bus_address();
        ServiceProcess second(options);
        EXPECT_EQ(second.wait_exit(), 1);
        EXPECT_EQ(second.matching("ERROR"), (Lines{"trelvo: ERROR: Failed to acquire service name: File exists",
                                                   "trelvo: ERROR: Failed to setup dbus"}));

        // The first still serves, and both ran the same full teardown list.
        Client client(first.bus_address());
        EXPECT_EQ(client.tracking_enabled(), "(<false>,)");
        first.send_signal(SIGTERM);
        EXPECT_EQ(first.wait_exit(), 0);
        EXPECT_FALSE(teardown_trace(first).empty());
        EXPECT_EQ(teardown_trace(second), teardown_trace(first));
}

bool name_has_owner(const std::string &address)
{
        g_autoptr(GDBusConnection) connection = g_dbus_connection_new_for_address_sync(
                address.c_str(),
                static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                  G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, nullptr, nullptr);
        if (!connection)
                return false;
        g_dbus_connection_set_exit_on_close(connection, FALSE);
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
                connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
                g_variant_new("(s)", trelvo_name), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        gboolean owned = FALSE;
        if (reply)
                g_variant_get(reply, "(b)", &owned);
        return owned;
}

// Between calls the main loop sleeps on the bus descriptor alone: sd-bus has no time-out
// pending, so nothing wakes the service. Cleanup gives the name back.
TEST(DbusSource, WithNothingPendingTheLoopWaitsForInputWithoutATimeout)
{
        PrivateBus bus;
        LogCapture log;
        DbusService *service = nullptr;
        ASSERT_EQ(dbus_setup(&service), 1);
        ASSERT_NE(service, nullptr);
        while (g_main_context_iteration(nullptr, FALSE)) {
        }

        GMainContext *context = g_main_context_default();
        ASSERT_TRUE(g_main_context_acquire(context));
        gint priority = 0;
        EXPECT_FALSE(g_main_context_prepare(context, &priority));
        GPollFD fds[2];
        gint timeout = 0;
        const gint n = g_main_context_query(context, priority, &timeout, fds, 2);
        EXPECT_EQ(timeout, -1);
        // The context's own wake-up descriptor and the bus connection, both for input only.
        ASSERT_EQ(n, 2);
        for (GPollFD &fd : fds) {
                EXPECT_EQ(fd.events, G_IO_IN);
                fd.revents = 0;
        }
        g_main_context_check(context, priority, fds, n);
        g_main_context_release(context);
        EXPECT_TRUE(name_has_owner(bus.address()));
        dbus_cleanup(service);
        EXPECT_FALSE(name_has_owner(bus.address()));
        EXPECT_TRUE(log.lines().empty());
}

// busctl on the service's bus as the user nobody; its exit status, its output in *output.
int busctl_as_nobody(const std::string &address, const Lines &args, std::string *output)
{
        Lines argv = {"setpriv", "--reuid=" + std::to_string(nobody), "--regid=" + std::to_string(nobody),
                      "--clear-groups", "busctl", "--address=" + address};
        argv.insert(argv.end(), args.begin(), args.end());
        ChildProcess busctl(argv);
        const int status = busctl.wait_exit();
        output->clear();
        for (const std::string &line : busctl.lines())
                *output += line + "\n";
        return status;
}

// The installed bus policy: anyone may read the switch, only root (and the operators'
// group) may flip it, and only root (and the service's user) may own the name.
TEST(DbusPolicy, AnUnprivilegedCallerMayReadTrackingEnabledButNotSetItNorOwnTheName)
{
        if (geteuid() != 0)
                GTEST_SKIP() << "calling in as another user needs root (setpriv) and real uids on the bus";
        ServiceOptions options;
        options.bus_config = TRELVO_POLICY_BUS_CONFIG;
        ServiceProcess service(options);
        ASSERT_TRUE(service.wait_for_line("DEBUG: Running"));
        const std::string address = service.bus_address();
        std::string output;

        EXPECT_NE(busctl_as_nobody(address, {"call", trelvo_name, trelvo_path, trelvo_interface, "SetTrackingEnabled",
                                             "b", "true"},
                                   &output),
                  0);
        EXPECT_NE(output.find("Access denied"), std::string::npos) << output;
        EXPECT_NE(busctl_as_nobody(address,
                                   {"call", "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "RequestName", "su", trelvo_name, "0"},
                                   &output),
                  0);
        EXPECT_NE(output.find("Access denied"), std::string::npos) << output;

        // Root (this test) may switch it; nobody reads the new value and may introspect.
        Client root(address);
        EXPECT_EQ(root.call(trelvo_interface, "SetTrackingEnabled", g_variant_new("(b)", TRUE)), "()");
        EXPECT_EQ(busctl_as_nobody(address, {"get-property", trelvo_name, trelvo_path, trelvo_interface, "TrackingEnabled"},
                                   &output),
                  0);
        EXPECT_EQ(output, "b true\n");
        EXPECT_EQ(busctl_as_nobody(address, {"introspect", trelvo_name, trelvo_path, trelvo_interface}, &output), 0);
        EXPECT_NE(output.find(".SetTrackingEnabled"), std::string::npos) << output;
        EXPECT_NE(output.find(".TrackingEnabled"), std::string::npos) << output;

        service.send_signal(SIGTERM);
        EXPECT_EQ(service.wait_exit(), 0);
}

} // namespace
