// trelvo: steers a PTZ camera so that it keeps the radar's followed objects in view.
#include "service.h"
#include "settings.h"

#include <array>

namespace {

// Start-up order; the first step that fails stops the service with status 1.
constexpr std::array<ServiceStep, 0> setup_steps{};

// Runs in full after a quit signal and after a failed start-up alike.
constexpr ServiceTeardown teardown_steps[] = {
        {"settings_cleanup", settings_cleanup},
};

} // namespace

int main(int argc, char **argv)
{
        return service_run(argc, argv, setup_steps, teardown_steps);
}
