// The simulated event producer (sim-events) as a child process on a private bus, and what
// it recorded: the declarations and events the service sent it.
#pragma once

#include "child_process.h"

#include <gio/gio.h>

#include <cstdint>
#include <string>
#include <vector>

// One call the producer received.
struct SimEventCall {
        std::string method; // "DeclareEvent", "SendEvent" or "UndeclareEvent"
        int id = 0;         // the id the call named, or the one DeclareEvent returned (0: refused)
        std::string args;   // the arguments as GVariant text
        std::string state;  // a SendEvent's "state" value, else ""
        int64_t time = 0;   // a SendEvent's time, microseconds since the epoch, else 0
        bool failed = false; // answered with an error
};

class SimEventsProcess : public SimProcess {
public:
        // Returns once it owns its name on the bus at bus_address.
        explicit SimEventsProcess(const std::string &bus_address);
        ~SimEventsProcess();

        // The recorded calls, oldest first; empty (with a test failure) when it cannot be asked.
        std::vector<SimEventCall> log();
        // The "state" values of the recorded SendEvent calls, in order.
        std::vector<std::string> states();
        // Until the states sent so far end with expected; else a test failure with them.
        bool wait_for_states(const std::vector<std::string> &expected, double seconds = child_default_wait_s);

        // Answer that method with an error from now on ("" answers every method again).
        bool fail_on(const std::string &method) { return control("FailOn", method.c_str()); }
        // Exit without answering the next call of that method.
        bool vanish_on(const std::string &method) { return control("VanishOn", method.c_str()); }
        bool clear() { return control("Clear", nullptr); }

private:
        GVariant *call(const char *method, GVariant *args);
        bool control(const char *method, const char *argument);

        GDBusConnection *connection_ = nullptr;
};
