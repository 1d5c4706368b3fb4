// The simulated zone service (sim-zones) as a child process on the current private bus,
// and calls to its test interface.
#pragma once

#include "child_process.h"

#include <gio/gio.h>

#include <string>

class SimZonesProcess : public SimProcess {
public:
        // Serves the "zones" of the scenario file ("" = no zones) on the bus at bus_address.
        // Returns once the service owns its name.
        SimZonesProcess(const std::string &bus_address, const std::string &scenario = "");
};

// Calls a method of com.zelk.RadarZones1.Sim on this process's system bus; args is a
// floating tuple of strings. False (with a test failure) when the call fails.
bool sim_zones_control(const char *method, GVariant *args);
