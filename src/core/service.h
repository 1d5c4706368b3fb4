// The service's life: logging, main loop and quit signals, then each subsystem's set-up
// in order, the loop, and the full teardown list whatever happened.
#pragma once

#include <span>
#include <type_traits>

struct ServiceStep {
        const char *name;            // the function, for the debug trace
        bool (*setup)(void);         // true when the subsystem is ready
        const char *failure_message; // error-level line when setup fails; steps that cannot fail have none
};

struct ServiceTeardown {
        const char *name;
        void (*teardown)(void); // must be safe when its set-up failed or never ran
};

// A subsystem's set-up as a step: a function returning a truth value (gboolean or bool)
// is ready when true; a function returning nothing cannot fail.
template <auto setup>
bool service_step(void)
{
        if constexpr (std::is_void_v<decltype(setup())>) {
                setup();
                return true;
        } else {
                return setup();
        }
}

// Runs the steps in order until one fails, runs the main loop until SIGINT or SIGTERM,
// then runs every teardown. Returns the exit status: 0 after a quit signal, 1 after a
// failed set-up step.
int service_run(int argc, char **argv, std::span<const ServiceStep> steps,
                std::span<const ServiceTeardown> teardowns);
