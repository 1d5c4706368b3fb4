#include "private_bus.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>

namespace {

// A test that crashes or is killed takes its bus along: otherwise the daemon lives on
// and keeps the test's output pipe open.
void private_bus_child_setup(gpointer)
{
        prctl(PR_SET_PDEATHSIG, SIGTERM);
}

} // namespace

PrivateBus::PrivateBus(const std::string &config)
{
        g_autofree gchar *directory = g_dir_make_tmp("trelvo-bus-XXXXXX", nullptr);
        if (!directory) {
                ADD_FAILURE() << "cannot make a directory for the private bus";
                return;
        }
        directory_ = directory;
        g_chmod(directory, 0755);
        const std::string address = "unix:path=" + directory_ + "/system_bus_socket";
        const std::string address_option = "--address=" + address;
        const std::string config_option = "--config-file=" + (config.empty() ? std::string(TRELVO_DBUS_CONFIG) : config);
        GError *error = nullptr;
        g_autoptr(GSubprocessLauncher) launcher = g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE);
        g_subprocess_launcher_set_child_setup(launcher, private_bus_child_setup, nullptr, nullptr);
        process_ = g_subprocess_launcher_spawn(launcher, &error, "dbus-daemon", "--nofork", "--nopidfile",
                                               config_option.c_str(), address_option.c_str(), "--print-address",
                                               nullptr);
        if (!process_) {
                ADD_FAILURE() << "cannot start dbus-daemon: " << error->message;
                g_error_free(error);
                return;
        }
        // The daemon prints its address once it listens: from then on clients can connect.
        g_autoptr(GDataInputStream) output = g_data_input_stream_new(g_subprocess_get_stdout_pipe(process_));
        g_autofree gchar *line = g_data_input_stream_read_line_utf8(output, nullptr, nullptr, nullptr);
        if (!line) {
                ADD_FAILURE() << "dbus-daemon exited before listening";
                g_subprocess_wait(process_, nullptr, nullptr);
                g_clear_object(&process_);
                return;
        }
        address_ = address;
        g_setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), TRUE);
}

PrivateBus::~PrivateBus()
{
        if (process_) {
                g_subprocess_send_signal(process_, SIGTERM);
                g_subprocess_wait(process_, nullptr, nullptr);
                g_clear_object(&process_);
        }
        if (!directory_.empty()) {
                g_remove((directory_ + "/system_bus_socket").c_str());
                g_rmdir(directory_.c_str());
        }
}

std::string private_bus_unreachable_address()
{
        return "unix:path=/nonexistent/trelvo-no-bus/system_bus_socket";
}
