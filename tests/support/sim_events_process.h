// The simulated event producer (sim-events) as a child process on a private bus, and what
// it recorded: the declarations and events the service sent it.
#pragma once

#include "child_process.h"

#include <gio/gio.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// One call the producer received.
struct SimEventCall {
        std::string method; // "DeclareEvent", "SendEvent" or "UndeclareEvent"
        int id = 0;         // the id the call named, or the one DeclareEvent returned (0: refused)
        std::string args;   // the arguments as GVariant text
        std::string state;  // a SendEvent's "state" value, else ""
        int64_t time = 0;   // a SendEvent's time, microseconds since the epoch, else 0
        std::string sender; // the caller's unique bus name
        bool failed = false; // answered with an error
};

class SimEventsProcess {
public:
        // Starts it on the bus at bus_address and returns once it owns its name.
        explicit SimEventsProcess(const std::string &bus_address);
        ~SimEventsProcess();
        SimEventsProcess(const SimEventsProcess &) = delete;
        SimEventsProcess &operator=(const SimEventsProcess &) = delete;

        bool ready() const { return ready_; }

        // The recorded calls, oldest first; empty (with a test failure) when it cannot be asked.
        std::vector<SimEventCall> log();
        // The "state" values of the recorded SendEvent calls, in order.
        std::vector<std::string> states();
        // Waits, within the time limit, until the states sent so far end with expected;
        // a test failure with the states it saw when they do not.
        bool wait_for_states(const std::vector<std::string> &expected, double seconds = child_default_wait_s);

        // Answer that method with an error from now on ("" answers every method again).
        bool fail_on(const std::string &method);
        // Exit without answering the next call of that method.
        bool vanish_on(const std::string &method);
        bool clear();

        // Stops it (SIGTERM) and waits for its exit.
        void stop();
        // Waits until it exited by itself (after vanish_on); its exit status.
        int wait_exit(double seconds = child_default_wait_s);
        // Its output: "sim-events: ready" and one line per call.
        const ChildProcess &process() const { return *process_; }

private:
        GVariant *call(const char *method, GVariant *args);

        std::unique_ptr<ChildProcess> process_;
        // A connection of its own: GIO's shared system-bus connection may belong to a bus
        // that an earlier test stopped.
        GDBusConnection *connection_ = nullptr;
        bool ready_ = false;
};
