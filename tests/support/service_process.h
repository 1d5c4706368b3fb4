// The real trelvo binary, started inside the rig's sandbox with its output captured line
// by line, for tests that drive the service from outside. With TRELVO_SERVICE_WRAPPER set
// (e.g. "valgrind --error-exitcode=99 ..."), the service runs under that command.
#pragma once

#include "child_process.h"
#include "json_post.h"
#include "temp_dir.h"

#include <memory>
#include <string>
#include <vector>

class PrivateBus;
class SimEventsProcess;
class SimZonesProcess;

// The system bus the service finds through DBUS_SYSTEM_BUS_ADDRESS: never the machine's.
enum class ServiceBus {
        private_with_zones, // a private dbus-daemon of its own, with sim-zones and sim-events serving on it
        existing,           // the bus at ServiceOptions::bus_address (e.g. another instance's); nothing started
        none,               // an address where nothing listens
};

struct ServiceOptions {
        std::string conf_dir{};                 // host directory mounted as the config directory; "" = fresh tmpfs
        std::vector<std::string> environment{}; // extra NAME=value entries
        bool debug_log = true;                  // G_MESSAGES_DEBUG=all, for the set-up and teardown trace
        ServiceBus bus = ServiceBus::private_with_zones;
        bool conf_read_only = false; // the config directory mounted read-only
        bool keep_net = false;       // share this process's network namespace (eth0, the simulated camera)
        std::string bus_config{};  // private_with_zones: the dbus-daemon's configuration; "" = the rig's
        std::string bus_address{}; // existing: the bus to join
};

// Its CGI socket is handed over as systemd does.
class ServiceProcess {
public:
        explicit ServiceProcess(const ServiceOptions &options = {});
        ~ServiceProcess();

        bool wait_for_line(const std::string &text, double seconds = child_default_wait_s)
        {
                return process_->wait_for_line(text, seconds);
        }
        void send_signal(int signal) { process_->send_signal(signal); }
        // SIGTERM, then its exit status (0 expected).
        int stop() { return process_->stop(); }
        // The service's process id (the rig's sandbox execs down to it).
        pid_t pid() const { return process_->pid(); }
        int wait_exit(double seconds = child_default_wait_s) { return process_->wait_exit(seconds); }
        std::vector<std::string> lines() const { return process_->lines(); }
        std::vector<std::string> matching(const std::string &text) const { return process_->matching(text); }

        // The simulated event producer beside it (ServiceBus::private_with_zones only).
        SimEventsProcess &events() { return *events_; }
        const std::string &bus_address() const { return bus_address_; }
        const std::string &cgi_socket_path() const { return cgi_socket_path_; }
        HttpAnswer cgi(const std::string &body) const { return cgi_post(cgi_socket_path_, body); }

private:
        // Declared first, destroyed last: the bus and the simulated peers outlive the service.
        std::unique_ptr<PrivateBus> bus_;
        std::unique_ptr<SimZonesProcess> zones_;
        std::unique_ptr<SimEventsProcess> events_;
        std::string bus_address_;
        TempDir cgi_dir_{"trelvo-cgi"};
        std::string cgi_socket_path_ = cgi_dir_.file("cgi.sock");
        std::unique_ptr<ChildProcess> process_;
};
