#include "service_process.h"

#include "private_bus.h"
#include "sim_events_process.h"
#include "sim_zones_process.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// The command the service runs under, from TRELVO_SERVICE_WRAPPER (e.g. valgrind and its
// options, split as a shell would); none when it is unset or empty.
std::vector<std::string> service_wrapper(void)
{
        const char *text = g_getenv("TRELVO_SERVICE_WRAPPER");
        gchar **words = nullptr;
        if (!text || !*text || !g_shell_parse_argv(text, nullptr, &words, nullptr))
                return {};
        std::vector<std::string> wrapper(words, words + g_strv_length(words));
        g_strfreev(words);
        return wrapper;
}

} // namespace

ServiceProcess::ServiceProcess(const ServiceOptions &options)
{
        bus_address_ = "unix:path=/nonexistent/trelvo-no-bus/system_bus_socket"; // where no bus listens
        if (options.bus == ServiceBus::private_with_zones) {
                bus_ = std::make_unique<PrivateBus>(options.bus_config);
                zones_ = std::make_unique<SimZonesProcess>(bus_->address());
                events_ = std::make_unique<SimEventsProcess>(bus_->address());
                bus_address_ = bus_->address();
        } else if (options.bus == ServiceBus::existing) {
                bus_address_ = options.bus_address;
        }
        std::vector<std::string> env = {"G_MESSAGES_DEBUG=" + std::string(options.debug_log ? "all" : ""),
                                        "DBUS_SYSTEM_BUS_ADDRESS=" + bus_address_};
        const std::string sanitizer = sanitizer_options_with_gstreamer();
        if (!sanitizer.empty())
                env.push_back(sanitizer);
        env.insert(env.end(), options.environment.begin(), options.environment.end());

        std::vector<std::string> argv = {TRELVO_SANDBOX, "--conf-path", TRELVO_CONF_DIR};
        if (!options.conf_dir.empty())
                argv.insert(argv.end(), {"--conf-dir", options.conf_dir});
        if (options.conf_read_only)
                argv.push_back("--conf-readonly");
        if (options.keep_net)
                argv.push_back("--keep-net");
        argv.push_back("--");
        const std::vector<std::string> wrapper = service_wrapper();
        argv.insert(argv.end(), wrapper.begin(), wrapper.end());
        argv.push_back(TRELVO_BINARY);

        const int cgi_fd = unix_listen(cgi_socket_path_);
        if (cgi_fd < 0)
                ADD_FAILURE() << "cannot listen on " << cgi_socket_path_ << ": " << g_strerror(errno);
        process_ = std::make_unique<ChildProcess>(argv, env, cgi_fd);
        if (cgi_fd >= 0)
                close(cgi_fd); // the service holds it now
}

ServiceProcess::~ServiceProcess() = default;
