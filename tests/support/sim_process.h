// A simulated peer as a child process of the test: started, ready once it printed its
// ready line, stopped with SIGTERM (at the latest when the object goes).
#pragma once

#include "child_process.h"

#include <memory>
#include <string>
#include <vector>

class SimProcess {
public:
        SimProcess(const SimProcess &) = delete;
        SimProcess &operator=(const SimProcess &) = delete;

        bool ready() const { return ready_; }
        // Stops it (SIGTERM) unless it already exited, and waits for the exit; its status.
        int stop();
        // Waits until it exited by itself (after a VanishOn); its exit status.
        int wait_exit(double seconds = child_default_wait_s);

protected:
        SimProcess() = default;
        ~SimProcess();
        // Starts argv with these extra environment entries and waits for a line containing
        // ready_line; a test failure with its last lines when that does not come.
        void start(const std::vector<std::string> &argv, const std::vector<std::string> &env,
                   const std::string &ready_line);

private:
        std::unique_ptr<ChildProcess> process_;
        bool ready_ = false;
};
