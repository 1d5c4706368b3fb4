// A private dbus-daemon standing in for the unit's system bus (tests/rig/dbus-system.conf),
// listening on a socket path in a fresh temporary directory. While it runs,
// DBUS_SYSTEM_BUS_ADDRESS points at it in this process, so children started afterwards
// (the service, sim-zones) and this process's own GIO system-bus connection use it and
// never the machine's bus. Like /run/dbus, the socket's directory is open to every user,
// so that a test can also call in under another uid.
#pragma once

#include <gio/gio.h>

#include <string>

class PrivateBus {
public:
        // config: the daemon's configuration file; "" = the rig's allow-everything one.
        explicit PrivateBus(const std::string &config = "");
        ~PrivateBus();
        PrivateBus(const PrivateBus &) = delete;
        PrivateBus &operator=(const PrivateBus &) = delete;

        bool running() const { return process_ != nullptr; }
        // The address, "unix:path=...", for a child's DBUS_SYSTEM_BUS_ADDRESS.
        const std::string &address() const { return address_; }

private:
        GSubprocess *process_ = nullptr;
        std::string directory_;
        std::string address_;
};

// An address where no bus listens, for a child that must find no system bus at all.
std::string private_bus_unreachable_address();
