// A private dbus-daemon standing in for the unit's system bus (tests/rig/dbus-system.conf),
// listening on a socket path in a fresh temporary directory. While it runs,
// DBUS_SYSTEM_BUS_ADDRESS points at it in this process, so children started afterwards
// (the service, sim-zones) and this process's own GIO system-bus connection use it and
// never the machine's bus. Like /run/dbus, the socket's directory is open to every user,
// so that a test can also call in under another uid.
#pragma once

#include "child_process.h"
#include "temp_dir.h"

#include <gio/gio.h>

#include <memory>
#include <string>

class PrivateBus {
public:
        // config: the daemon's configuration file; "" = the rig's allow-everything one.
        explicit PrivateBus(const std::string &config = "");

        bool running() const { return !address_.empty(); }
        // "unix:path=...", for a child's DBUS_SYSTEM_BUS_ADDRESS.
        const std::string &address() const { return address_; }

private:
        TempDir directory_{"trelvo-bus"};
        std::unique_ptr<ChildProcess> process_;
        std::string address_;
};

// The bus of the whole test program, started at the first call and stopped at its exit.
// GIO keeps one system-bus connection per process, so a program that talks to the bus
// itself keeps one bus: the connection is held, and the bus stopping at exit ends nothing.
const PrivateBus &private_bus_of_program();

// A client connection of its own to the bus at address (GIO's shared system-bus
// connection may belong to a bus that an earlier test stopped); null, with a test
// failure, when it cannot connect. Unref it.
GDBusConnection *private_bus_connect(const std::string &address);

// Calls a method (args may be floating or null); the reply, to unref. On failure null,
// and: the error's D-Bus name in *error_name when given, else a test failure.
GVariant *private_bus_call(GDBusConnection *connection, const char *name, const char *path, const char *interface,
                           const char *method, GVariant *args, std::string *error_name = nullptr);
