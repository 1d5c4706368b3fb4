#include "child_process.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point deadline_after(double seconds)
{
        return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

constexpr int systemd_first_fd = 3;

} // namespace

std::string sanitizer_options_with_gstreamer()
{
        // AddressSanitizer reads its own variable; LeakSanitizer alone (the debug build) reads LSAN_OPTIONS.
        const char *name = getenv("ASAN_OPTIONS") ? "ASAN_OPTIONS" : "LSAN_OPTIONS";
        const char *options = getenv(name);
        return options ? std::string(name) + "=" + options + ":fast_unwind_on_malloc=0" : std::string();
}

std::vector<std::string> sanitizer_options_without_leak_check()
{
        std::vector<std::string> env;
        for (const char *name : {"ASAN_OPTIONS", "LSAN_OPTIONS"})
                if (const char *value = getenv(name))
                        env.push_back(std::string(name) + "=" + value + ":detect_leaks=0:fast_unwind_on_malloc=1");
        return env;
}

bool poll_until(const std::function<bool()> &done, double seconds, int interval_ms)
{
        const auto deadline = deadline_after(seconds);
        for (;;) {
                if (done())
                        return true;
                if (Clock::now() >= deadline)
                        return false;
                std::this_thread::sleep_for(std::chrono::milliseconds(interval_ms));
        }
}

bool iterate_until(const std::function<bool()> &done, double seconds)
{
        // Asked after each event, so that the test acts on the first that brings it about.
        return poll_until([&] {
                while (!done())
                        if (!g_main_context_iteration(nullptr, FALSE))
                                return false;
                return true;
        }, seconds, 1);
}

void serve_while(const std::function<void()> &client)
{
        auto sender = std::async(std::launch::async, client);
        const auto done = [&] { return sender.wait_for(std::chrono::seconds(0)) == std::future_status::ready; };
        EXPECT_TRUE(iterate_until(done));
}

ChildProcess::ChildProcess(const std::vector<std::string> &argv, const std::vector<std::string> &env, int listen_fd)
    : name_(argv.empty() ? "" : argv[0])
{
        g_auto(GStrv) environment = g_get_environ();
        for (const std::string &entry : env) {
                const size_t equals = entry.find('=');
                environment = g_environ_setenv(environment, entry.substr(0, equals).c_str(),
                                               entry.substr(equals + 1).c_str(), TRUE);
        }
        // LISTEN_PID must be the pid of the program that serves; a shell knows its own and
        // keeps it through exec.
        std::vector<std::string> command = argv;
        if (listen_fd >= 0) {
                environment = g_environ_setenv(environment, "LISTEN_FDS", "1", TRUE);
                command.insert(command.begin(), {"/bin/sh", "-c", "export LISTEN_PID=$$; exec \"$@\"", "sh"});
        }
        std::vector<char *> c_argv;
        for (const std::string &a : command)
                c_argv.push_back(const_cast<char *>(a.c_str()));
        c_argv.push_back(nullptr);

        int fds[2];
        if (argv.empty() || pipe2(fds, O_CLOEXEC) != 0) {
                ADD_FAILURE() << "cannot start " << name_ << ": " << std::strerror(errno);
                return;
        }
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) {
                // Only async-signal-safe calls from here to exec.
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                if (getppid() != parent)
                        _exit(127);
                dup2(fds[1], STDOUT_FILENO);
                dup2(fds[1], STDERR_FILENO);
                if (listen_fd == systemd_first_fd)
                        fcntl(listen_fd, F_SETFD, 0);
                else if (listen_fd >= 0)
                        dup2(listen_fd, systemd_first_fd);
                setpgid(0, 0);
                execvpe(c_argv[0], c_argv.data(), environment);
                const char message[] = "exec failed\n";
                (void)!write(STDERR_FILENO, message, sizeof(message) - 1);
                _exit(127);
        }
        close(fds[1]);
        if (pid_ < 0) {
                ADD_FAILURE() << "cannot fork for " << name_ << ": " << std::strerror(errno);
                close(fds[0]);
                return;
        }
        reader_ = std::thread(&ChildProcess::read_output, this, fds[0]);
}

ChildProcess::~ChildProcess()
{
        if (pid_ > 0 && !exited()) {
                kill(-pid_, SIGKILL);
                reap(0);
        }
        finish_output(0.0);
}

// The output ends once everything that shares the pipe has gone: the child's own
// children (its process group) get a moment, then SIGKILL.
void ChildProcess::finish_output(double seconds)
{
        if (!reader_.joinable())
                return;
        std::unique_lock lock(mutex_);
        const bool ended = changed_.wait_until(lock, deadline_after(seconds), [&] { return output_ended_; });
        lock.unlock();
        if (!ended)
                kill(-pid_, SIGKILL);
        reader_.join();
}

void ChildProcess::read_output(int fd)
{
        std::string pending;
        char buffer[4096];
        for (;;) {
                const ssize_t n = read(fd, buffer, sizeof(buffer));
                if (n < 0 && errno == EINTR)
                        continue;
                if (n <= 0)
                        break;
                pending.append(buffer, static_cast<size_t>(n));
                size_t end;
                std::lock_guard lock(mutex_);
                while ((end = pending.find('\n')) != std::string::npos) {
                        lines_.push_back(pending.substr(0, end));
                        pending.erase(0, end + 1);
                }
                changed_.notify_all();
        }
        close(fd);
        std::lock_guard lock(mutex_);
        if (!pending.empty())
                lines_.push_back(pending);
        output_ended_ = true;
        changed_.notify_all();
}

bool ChildProcess::wait_for_line(const std::string &text, double seconds)
{
        std::unique_lock lock(mutex_);
        size_t checked = 0;
        const bool found = changed_.wait_until(lock, deadline_after(seconds), [&] {
                for (; checked < lines_.size(); checked++)
                        if (lines_[checked].find(text) != std::string::npos)
                                return true;
                return output_ended_;
        }) && checked < lines_.size();
        if (!found) {
                const char *why = output_ended_ ? "its output ended" : "time ran out";
                lock.unlock();
                ADD_FAILURE() << name_ << " never printed \"" << text << "\" (" << why << "); last lines:\n" << tail();
        }
        return found;
}

void ChildProcess::send_signal(int signal)
{
        if (pid_ > 0 && !reaped_)
                kill(pid_, signal);
}

void ChildProcess::reap(int options)
{
        if (reaped_ || pid_ <= 0)
                return;
        int status = 0;
        pid_t r;
        do
                r = waitpid(pid_, &status, options);
        while (r < 0 && errno == EINTR);
        if (r == pid_) {
                reaped_ = true;
                status_ = status;
        }
}

int ChildProcess::stop()
{
        if (!exited())
                send_signal(SIGTERM);
        return wait_exit();
}

bool ChildProcess::exited()
{
        reap(WNOHANG);
        return reaped_;
}

int ChildProcess::wait_exit(double seconds)
{
        if (pid_ <= 0)
                return -1;
        if (!poll_until([&] { return exited(); }, seconds)) {
                ADD_FAILURE() << name_ << " did not exit within " << seconds << " s; last lines:\n" << tail();
                kill(pid_, SIGKILL);
                reap(0);
                return -1;
        }
        finish_output(5.0);
        if (!WIFEXITED(status_)) {
                ADD_FAILURE() << name_ << " was killed by signal " << WTERMSIG(status_) << "; last lines:\n" << tail();
                return -1;
        }
        return WEXITSTATUS(status_);
}

std::vector<std::string> ChildProcess::lines() const
{
        std::lock_guard lock(mutex_);
        return lines_;
}

std::string ChildProcess::tail(size_t n) const
{
        const std::vector<std::string> all = lines();
        std::string out;
        for (size_t i = all.size() > n ? all.size() - n : 0; i < all.size(); i++)
                out += "  " + all[i] + "\n";
        return out.empty() ? "  (nothing)\n" : out;
}
