#include "sim_zones_process.h"

#include "private_bus.h"

SimZonesProcess::SimZonesProcess(const std::string &bus_address, const std::string &scenario)
{
        std::vector<std::string> argv = {TRELVO_SIM_ZONES};
        if (!scenario.empty())
                argv.insert(argv.end(), {"--scenario", scenario});
        // A test peer: a reply in flight when it is stopped may be reported as lost.
        std::vector<std::string> env = sanitizer_options_without_leak_check();
        env.push_back("DBUS_SYSTEM_BUS_ADDRESS=" + bus_address);
        start(argv, env, "sim-zones: ready");
}

bool sim_zones_control(const char *method, GVariant *args)
{
        g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        g_autoptr(GVariant) reply = private_bus_call(bus, "com.zelk.RadarZones1", "/com/zelk/RadarZones1",
                                                     "com.zelk.RadarZones1.Sim", method, args);
        return reply != nullptr;
}
