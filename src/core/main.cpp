// trelvo: steers a PTZ camera so that it keeps the radar's followed objects in view.
#include "exclude_areas.h"
#include "persistent.h"
#include "radar_metadata.h"
#include "radar_zones.h"
#include "service.h"
#include "settings.h"

namespace {

bool radar_metadata_setup_step(void)
{
        return radar_metadata_setup();
}

bool persistent_setup_step(void)
{
        return persistent_setup();
}

bool settings_load_step(void)
{
        settings_load();
        return true;
}

bool exclude_areas_init_step(void)
{
        exclude_areas_init();
        return true;
}

bool radar_zones_init_step(void)
{
        return radar_zones_init();
}

// Start-up order; the first step that fails stops the service with status 1.
constexpr ServiceStep setup_steps[] = {
        {"radar_metadata_setup", radar_metadata_setup_step, "%sFailed to setup radar metadata"},
        {"persistent_setup", persistent_setup_step, "%sFailed to setup persistent"},
        {"settings_load", settings_load_step, nullptr},
        {"exclude_areas_init", exclude_areas_init_step, nullptr},
        {"radar_zones_init", radar_zones_init_step, "%sFailed to init radar zones"},
};

// Runs in full after a quit signal and after a failed start-up alike.
constexpr ServiceTeardown teardown_steps[] = {
        {"radar_metadata_cleanup", radar_metadata_cleanup},
        {"exclude_areas_cleanup", exclude_areas_cleanup},
        {"radar_zones_cleanup", radar_zones_cleanup},
        {"persistent_cleanup", persistent_cleanup},
        {"settings_cleanup", settings_cleanup},
};

} // namespace

int main(int argc, char **argv)
{
        return service_run(argc, argv, setup_steps, teardown_steps);
}
