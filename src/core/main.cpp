// trelvo: steers a PTZ camera so that it keeps the radar's followed objects in view.
#include "camera.h"
#include "cgi.h"
#include "dbus_service.h"
#include "events.h"
#include "exclude_areas.h"
#include "persistent.h"
#include "radar_metadata.h"
#include "radar_zones.h"
#include "service.h"
#include "settings_load.h"

namespace {

// The control service's handle: set only once it is published.
DbusService *dbus_service = nullptr;

bool main_dbus_setup(void)
{
        return dbus_setup(&dbus_service) >= 0;
}

void main_dbus_cleanup(void)
{
        if (dbus_service)
                dbus_cleanup(dbus_service);
        dbus_service = nullptr;
}

// Start-up order; the first step that fails stops the service with status 1.
constexpr ServiceStep setup_steps[] = {
        {"radar_metadata_setup", service_step<radar_metadata_setup>, "%sFailed to setup radar metadata"},
        {"persistent_setup", service_step<persistent_setup>, "%sFailed to setup persistent"},
        {"settings_load", service_step<settings_load>, nullptr},
        {"declare_state_event", service_step<declare_state_event>, "%sFailed to setup events"},
        {"exclude_areas_init", service_step<exclude_areas_init>, nullptr},
        {"radar_zones_init", service_step<radar_zones_init>, "%sFailed to init radar zones"},
        {"cgi_setup", service_step<cgi_setup>, "%sFailed to init cgi"},
        {"ptz_control_setup", service_step<ptz_control_setup>, "%sFailed to setup ptz control"},
        {"dbus_setup", main_dbus_setup, "%sFailed to setup dbus"},
};

// Runs in full after a quit signal and after a failed start-up alike.
constexpr ServiceTeardown teardown_steps[] = {
        {"dbus_cleanup", main_dbus_cleanup},
        {"radar_metadata_cleanup", radar_metadata_cleanup},
        {"ptz_control_teardown", ptz_control_teardown},
        {"cgi_cleanup", cgi_cleanup},
        {"exclude_areas_cleanup", exclude_areas_cleanup},
        {"radar_zones_cleanup", radar_zones_cleanup},
        {"undeclare_state_event", undeclare_state_event},
        {"persistent_cleanup", persistent_cleanup},
        {"settings_cleanup", settings_cleanup},
};

} // namespace

int main(int argc, char **argv)
{
        return service_run(argc, argv, setup_steps, teardown_steps);
}
