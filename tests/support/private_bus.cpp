#include "private_bus.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>

PrivateBus::PrivateBus(const std::string &config)
{
        g_chmod(directory_.path().c_str(), 0755);
        const std::string address = "unix:path=" + directory_.file("system_bus_socket");
        process_ = std::make_unique<ChildProcess>(std::vector<std::string>{
                "dbus-daemon", "--nofork", "--nopidfile",
                "--config-file=" + (config.empty() ? std::string(TRELVO_DBUS_CONFIG) : config),
                "--address=" + address, "--print-address"});
        // The daemon prints its address once it listens: from then on clients can connect.
        if (!process_->wait_for_line(address))
                return;
        address_ = address;
        g_setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), TRUE);
}

const PrivateBus &private_bus_of_program()
{
        static const PrivateBus bus;
        [[maybe_unused]] static GDBusConnection *const connection = [] {
                GDBusConnection *held = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
                if (held)
                        g_dbus_connection_set_exit_on_close(held, FALSE);
                else
                        ADD_FAILURE() << "no system-bus connection to the private bus";
                return held;
        }();
        return bus;
}

GDBusConnection *private_bus_connect(const std::string &address)
{
        g_autoptr(GError) error = nullptr;
        GDBusConnection *connection = g_dbus_connection_new_for_address_sync(
                address.c_str(),
                static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                  G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, nullptr, &error);
        if (!connection) {
                ADD_FAILURE() << "cannot connect to " << address << ": " << error->message;
                return nullptr;
        }
        g_dbus_connection_set_exit_on_close(connection, FALSE);
        return connection;
}

GVariant *private_bus_call(GDBusConnection *connection, const char *name, const char *path, const char *interface,
                           const char *method, GVariant *args, std::string *error_name)
{
        g_autoptr(GVariant) sunk = args ? g_variant_ref_sink(args) : nullptr; // also when not sent
        g_autoptr(GError) error = nullptr;
        GVariant *reply = connection ? g_dbus_connection_call_sync(connection, name, path, interface, method, sunk,
                                                                   nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error)
                                     : nullptr;
        if (reply)
                return reply;
        g_autofree gchar *remote = error ? g_dbus_error_get_remote_error(error) : nullptr;
        if (error_name)
                *error_name = remote ? remote : "";
        else
                ADD_FAILURE() << method << ": " << (error ? error->message : "not connected");
        return nullptr;
}
