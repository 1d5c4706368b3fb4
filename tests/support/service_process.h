// The real trelvo binary, started inside the rig's sandbox with its output captured line
// by line, for tests that drive the service from outside.
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <vector>

class PrivateBus;
class SimZonesProcess;

// The system bus the service finds through DBUS_SYSTEM_BUS_ADDRESS: never the machine's.
enum class ServiceBus {
        private_with_zones, // a private dbus-daemon of its own, with sim-zones serving on it
        none,               // an address where nothing listens
};

struct ServiceOptions {
        std::string conf_dir;                 // host directory mounted as the config directory; "" = fresh tmpfs
        std::vector<std::string> environment; // extra NAME=value entries
        bool debug_log = true;                // G_MESSAGES_DEBUG=all, for the set-up and teardown trace
        ServiceBus bus = ServiceBus::private_with_zones;
        std::string zones_scenario; // scenario whose zones sim-zones serves; "" = no zones
        bool conf_read_only = false; // the config directory mounted read-only
};

class ServiceProcess {
public:
        explicit ServiceProcess(const ServiceOptions &options = {});
        ~ServiceProcess();
        ServiceProcess(const ServiceProcess &) = delete;
        ServiceProcess &operator=(const ServiceProcess &) = delete;

        // Reads output until a line containing text arrives; false when the output ends first.
        bool wait_for_line(const std::string &text);
        void send_signal(int signal);
        // Reads the rest of the output and returns the exit status.
        int wait_exit();
        const std::vector<std::string> &lines() const { return lines_; }
        // Lines that mention text, in order.
        std::vector<std::string> matching(const std::string &text) const;

private:
        bool read_line();

        // Declared first, destroyed last: the bus and sim-zones outlive the service.
        std::unique_ptr<PrivateBus> bus_;
        std::unique_ptr<SimZonesProcess> zones_;
        GSubprocess *process_ = nullptr;
        GDataInputStream *output_ = nullptr;
        std::vector<std::string> lines_;
};
