#include "sim_zones_process.h"

#include <gtest/gtest.h>
#include <signal.h>

SimZonesProcess::SimZonesProcess(const std::string &bus_address, const std::string &scenario)
{
        GSubprocessLauncher *launcher = g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE);
        g_subprocess_launcher_setenv(launcher, "DBUS_SYSTEM_BUS_ADDRESS", bus_address.c_str(), TRUE);
        GError *error = nullptr;
        if (scenario.empty())
                process_ = g_subprocess_launcher_spawn(launcher, &error, TRELVO_SIM_ZONES, nullptr);
        else
                process_ = g_subprocess_launcher_spawn(launcher, &error, TRELVO_SIM_ZONES, "--scenario",
                                                       scenario.c_str(), nullptr);
        g_object_unref(launcher);
        if (!process_) {
                ADD_FAILURE() << "cannot start sim-zones: " << error->message;
                g_error_free(error);
                return;
        }
        // Its only output before serving is the ready line; it prints little afterwards,
        // so the pipe never fills.
        GDataInputStream *output = g_data_input_stream_new(g_subprocess_get_stdout_pipe(process_));
        gchar *line = g_data_input_stream_read_line_utf8(output, nullptr, nullptr, nullptr);
        g_object_unref(output);
        ready_ = line && g_str_equal(line, "sim-zones: ready");
        if (!ready_)
                ADD_FAILURE() << "sim-zones did not get ready: " << (line ? line : "(exited)");
        g_free(line);
}

SimZonesProcess::~SimZonesProcess()
{
        stop();
}

void SimZonesProcess::stop()
{
        if (!process_)
                return;
        g_subprocess_send_signal(process_, SIGTERM);
        wait_exit();
}

void SimZonesProcess::wait_exit()
{
        if (!process_)
                return;
        g_subprocess_wait(process_, nullptr, nullptr);
        g_clear_object(&process_);
        ready_ = false;
}

bool sim_zones_control(const char *method, GVariant *args)
{
        GError *error = nullptr;
        GDBusConnection *bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
        GVariant *reply = bus ? g_dbus_connection_call_sync(bus, "com.zelk.RadarZones1", "/com/zelk/RadarZones1",
                                                            "com.zelk.RadarZones1.Sim", method, args, nullptr,
                                                            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error)
                              : nullptr;
        if (!bus && args)
                g_variant_unref(g_variant_ref_sink(args));
        g_clear_object(&bus);
        if (!reply) {
                ADD_FAILURE() << "sim-zones " << method << ": " << error->message;
                g_error_free(error);
                return false;
        }
        g_variant_unref(reply);
        return true;
}

const char *sim_zones_demo_scenario()
{
        return TRELVO_DEMO_SCENARIO;
}
