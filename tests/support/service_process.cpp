#include "service_process.h"

#include "private_bus.h"
#include "sim_zones_process.h"

#include <gtest/gtest.h>

ServiceProcess::ServiceProcess(const ServiceOptions &options)
{
        GSubprocessLauncher *launcher = g_subprocess_launcher_new(
                static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_MERGE));
        g_subprocess_launcher_setenv(launcher, "G_MESSAGES_DEBUG", options.debug_log ? "all" : "", TRUE);
        std::string bus_address = private_bus_unreachable_address();
        if (options.bus == ServiceBus::private_with_zones) {
                bus_ = std::make_unique<PrivateBus>();
                zones_ = std::make_unique<SimZonesProcess>(bus_->address(), options.zones_scenario);
                bus_address = bus_->address();
        }
        g_subprocess_launcher_setenv(launcher, "DBUS_SYSTEM_BUS_ADDRESS", bus_address.c_str(), TRUE);
        for (const std::string &entry : options.environment) {
                const auto eq = entry.find('=');
                g_subprocess_launcher_setenv(launcher, entry.substr(0, eq).c_str(), entry.substr(eq + 1).c_str(),
                                             TRUE);
        }
        std::vector<const char *> argv = {TRELVO_SANDBOX, "--conf-path", TRELVO_CONF_DIR};
        if (!options.conf_dir.empty()) {
                argv.push_back("--conf-dir");
                argv.push_back(options.conf_dir.c_str());
        }
        if (options.conf_read_only)
                argv.push_back("--conf-readonly");
        argv.push_back("--");
        argv.push_back(TRELVO_BINARY);
        argv.push_back(nullptr);

        GError *error = nullptr;
        process_ = g_subprocess_launcher_spawnv(launcher, argv.data(), &error);
        g_object_unref(launcher);
        if (!process_) {
                ADD_FAILURE() << "cannot start trelvo: " << error->message;
                g_error_free(error);
                return;
        }
        output_ = g_data_input_stream_new(g_subprocess_get_stdout_pipe(process_));
}

ServiceProcess::~ServiceProcess()
{
        if (process_ && !g_subprocess_get_if_exited(process_) && !g_subprocess_get_if_signaled(process_)) {
                g_subprocess_force_exit(process_);
                g_subprocess_wait(process_, nullptr, nullptr);
        }
        g_clear_object(&output_);
        g_clear_object(&process_);
}

bool ServiceProcess::read_line()
{
        if (!output_)
                return false;
        gsize length = 0;
        gchar *line = g_data_input_stream_read_line_utf8(output_, &length, nullptr, nullptr);
        if (!line)
                return false;
        lines_.emplace_back(line, length);
        g_free(line);
        return true;
}

bool ServiceProcess::wait_for_line(const std::string &text)
{
        for (const std::string &line : lines_)
                if (line.find(text) != std::string::npos)
                        return true;
        while (read_line())
                if (lines_.back().find(text) != std::string::npos)
                        return true;
        return false;
}

void ServiceProcess::send_signal(int signal)
{
        if (process_)
                g_subprocess_send_signal(process_, signal);
}

int ServiceProcess::wait_exit()
{
        while (read_line()) {
        }
        if (!process_ || !g_subprocess_wait(process_, nullptr, nullptr))
                return -1;
        if (!g_subprocess_get_if_exited(process_))
                return -1;
        return g_subprocess_get_exit_status(process_);
}

std::vector<std::string> ServiceProcess::matching(const std::string &text) const
{
        std::vector<std::string> out;
        for (const std::string &line : lines_)
                if (line.find(text) != std::string::npos)
                        out.push_back(line);
        return out;
}
