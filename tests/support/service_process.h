// The real trelvo binary, started inside the rig's sandbox with its output captured line
// by line, for tests that drive the service from outside.
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

struct ServiceOptions {
        std::string conf_dir;                 // host directory mounted as the config directory; "" = fresh tmpfs
        std::vector<std::string> environment; // extra NAME=value entries
        bool debug_log = true;                // G_MESSAGES_DEBUG=all, for the set-up and teardown trace
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

        GSubprocess *process_ = nullptr;
        GDataInputStream *output_ = nullptr;
        std::vector<std::string> lines_;
};
