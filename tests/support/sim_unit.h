// The simulated unit around one service under test, for tests run inside the rig's
// sandbox: a directory of its own with the configuration file and the scene socket, the
// simulated radar playing a scenario, and the service started on them, sharing the
// test's network (where the simulated camera listens).
#pragma once

#include "service_process.h"
#include "temp_dir.h"

#include <cstdint>
#include <memory>
#include <string>

class SimUnit {
public:
        // Starts sim-radar with a scenario of sim/scenarios (e.g. "walk_20m.json"), at its
        // own scene rate or at rate_hz when that is above 0.
        explicit SimUnit(const std::string &scenario, double rate_hz = 0.0);

        // Writes trelvo.conf: the camera at 127.0.0.1 (user root, this password, stored
        // encrypted as the service would), tracking on unless told otherwise, and any further
        // lines for the "camera" group (e.g. "name=ZPT-6100\n").
        void configure(const std::string &password, const std::string &camera_lines = "", bool tracking = true);
        // The configuration file as it is now ("" when there is none).
        std::string conf_text() const;
        // The service on this directory's configuration and scene socket, once it runs.
        std::unique_ptr<ServiceProcess> start_service() const;

        ChildProcess &radar() { return *radar_; }
        // When the radar first showed the object (monotonic microseconds), -1 until then.
        int64_t object_appeared_us(uint32_t id) const;
        // walk_20m.json: the walking person's azimuth now, degrees to the right (NaN until
        // it appeared), worked out from its path, its speed and when it appeared.
        double walker_azimuth() const;

private:
        TempDir directory_{"trelvo-unit"};
        std::unique_ptr<ChildProcess> radar_;
};
