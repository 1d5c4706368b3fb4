#include "sim_zones_process.h"

#include <gtest/gtest.h>
#include <signal.h>

SimZonesProcess::SimZonesProcess(const std::string &bus_address, const std::string &scenario)
{
        g_autoptr(GSubprocessLauncher) launcher = g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE);
        g_subprocess_launcher_setenv(launcher, "DBUS_SYSTEM_BUS_ADDRESS", bus_address.c_str(), TRUE);
        GError *error = nullptr;
        process_ = g_subprocess_launcher_spawn(launcher, &error, TRELVO_SIM_ZONES, scenario.empty() ? nullptr : "--scenario",
                                               scenario.c_str(), nullptr);
        if (!process_) {
                ADD_FAILURE() << "cannot start sim-zones: " << error->message;
                g_error_free(error);
                return;
        }
        // Its only output before serving is the ready line; it prints little afterwards,
        // so the pipe never fills.
        g_autoptr(GDataInputStream) output = g_data_input_stream_new(g_subprocess_get_stdout_pipe(process_));
        g_autofree gchar *line = g_data_input_stream_read_line_utf8(output, nullptr, nullptr, nullptr);
        ready_ = line && g_str_equal(line, "sim-zones: ready");
        if (!ready_)
                ADD_FAILURE() << "sim-zones did not get ready: " << (line ? line : "(exited)");
}

SimZonesProcess::~SimZonesProcess()
{
        stop();
}

void SimZonesProcess::stop()
{
        if (process_)
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
        g_autoptr(GVariant) sunk = g_variant_ref_sink(args); // kept alive if there is no bus
        g_autoptr(GError) error = nullptr;
        g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
        g_autoptr(GVariant) reply = bus ? g_dbus_connection_call_sync(bus, "com.zelk.RadarZones1", "/com/zelk/RadarZones1",
                                                                      "com.zelk.RadarZones1.Sim", method, sunk, nullptr,
                                                                      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error)
                                        : nullptr;
        if (!reply)
                ADD_FAILURE() << "sim-zones " << method << ": " << error->message;
        return reply != nullptr;
}
