// A program the test starts and reads: its standard output and error, merged, are
// collected line by line on a thread of their own (so the pipe never fills), and every
// wait has a time limit, so a child that hangs or stops printing fails the test at once
// with what it printed. The child gets SIGKILL when the test process dies, and when the
// ChildProcess is destroyed while it still runs.
#pragma once

#include "log_capture.h"

#include <sys/types.h>
#include <unistd.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Seconds a wait gives a child by default; sanitizer builds are several times slower.
constexpr double child_default_wait_s = 30.0;

// ASAN_OPTIONS=... or LSAN_OPTIONS=... for a child that starts GStreamer, in sanitizer
// builds: allocations unwound in full, so that GLib's one leak of such processes is told
// from the rest (tests/rig/lsan.supp). Empty when the tests run without a sanitizer.
std::string sanitizer_options_with_gstreamer();

// The sanitizers' variables for a test peer whose leaks are not looked for: a simulated
// program, e.g. one serving HTTP with libsoup 3.2, which never frees a socket it accepted.
std::vector<std::string> sanitizer_options_without_leak_check();

// Asks done every interval_ms until it holds, for at most seconds; whether it came to hold.
// For what another process changes: nothing in this one wakes the wait.
bool poll_until(const std::function<bool()> &done, double seconds, int interval_ms = 20);
// The same for what this thread's main loop brings about: it runs between the asks.
bool iterate_until(const std::function<bool()> &done, double seconds = child_default_wait_s);
// Runs client on a thread of its own while this thread's main loop serves, until it is done.
void serve_while(const std::function<void()> &client);

// Standard input (descriptor 0) closed while it lives, as for a program started without it.
struct StdinClosed {
        const int saved = dup(0);
        StdinClosed() { close(0); }
        ~StdinClosed() { dup2(saved, 0), close(saved); }
};

class ChildProcess {
public:
        // argv[0] is a path or a program on PATH; env holds extra NAME=value entries.
        // listen_fd >= 0 hands that listening socket over the way systemd does: as
        // descriptor 3, with LISTEN_FDS=1 and LISTEN_PID the child's pid (which the
        // programs it execs keep).
        explicit ChildProcess(const std::vector<std::string> &argv, const std::vector<std::string> &env = {},
                              int listen_fd = -1);
        ~ChildProcess();

        bool started() const { return pid_ > 0; }
        pid_t pid() const { return pid_; }

        // Waits until a line containing text has been printed (also one printed earlier).
        // On time-out or end of output: a test failure naming the text and the last lines.
        bool wait_for_line(const std::string &text, double seconds = child_default_wait_s);
        void send_signal(int signal);
        // Waits for the exit and returns the exit status; -1 (and a failure) when it was
        // killed by a signal or did not exit in time (it is then killed).
        int wait_exit(double seconds = child_default_wait_s);
        // SIGTERM unless it exited already, then wait_exit.
        int stop();
        bool exited();

        std::vector<std::string> lines() const;
        std::vector<std::string> matching(const std::string &text) const { return lines_containing(lines(), text); }
        // The last n lines, for failure messages.
        std::string tail(size_t n = 30) const;

private:
        void read_output(int fd);
        void finish_output(double seconds);
        void reap(int options);

        std::string name_;
        pid_t pid_ = -1;
        int status_ = -1;
        bool reaped_ = false;
        std::thread reader_;
        mutable std::mutex mutex_;
        std::condition_variable changed_;
        std::vector<std::string> lines_;
        bool output_ended_ = false;
};

// A simulated peer of the service: ready once it printed its ready line, and stopped
// with SIGTERM at the latest when it goes.
class SimProcess {
public:
        bool ready() const { return ready_; }
        int stop() { return process_->stop(); }
        // Waits until it exited by itself (after a VanishOn); its exit status.
        int wait_exit(double seconds = child_default_wait_s) { return process_->wait_exit(seconds); }

protected:
        SimProcess() = default;
        ~SimProcess() { stop(); }
        void start(const std::vector<std::string> &argv, const std::vector<std::string> &env,
                   const std::string &ready_line)
        {
                process_ = std::make_unique<ChildProcess>(argv, env);
                ready_ = process_->started() && process_->wait_for_line(ready_line);
        }

private:
        std::unique_ptr<ChildProcess> process_;
        bool ready_ = false;
};
