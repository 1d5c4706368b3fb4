#include "child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point deadline_after(double seconds)
{
        return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// The child's environment: ours, with the given entries added or replaced.
std::vector<std::string> child_environment(const std::vector<std::string> &extra)
{
        std::vector<std::string> env;
        for (char **e = environ; *e; e++) {
                const std::string entry(*e);
                const std::string name = entry.substr(0, entry.find('='));
                bool replaced = false;
                for (const std::string &x : extra)
                        replaced |= x.substr(0, x.find('=')) == name;
                if (!replaced)
                        env.push_back(entry);
        }
        env.insert(env.end(), extra.begin(), extra.end());
        return env;
}

constexpr int systemd_first_fd = 3;
constexpr char listen_pid_name[] = "LISTEN_PID=";

// Writes "LISTEN_PID=<pid>" into entry; async-signal-safe, for the forked child.
void child_format_listen_pid(char *entry, pid_t pid)
{
        char digits[16];
        int n = 0;
        do
                digits[n++] = static_cast<char>('0' + pid % 10);
        while ((pid /= 10) > 0);
        char *p = entry + sizeof(listen_pid_name) - 1;
        while (n > 0)
                *p++ = digits[--n];
        *p = '\0';
}

} // namespace

std::string sanitizer_options_with_gstreamer()
{
        const char *options = getenv("ASAN_OPTIONS");
        return options ? std::string("ASAN_OPTIONS=") + options + ":fast_unwind_on_malloc=0" : std::string();
}

ChildProcess::ChildProcess(const std::vector<std::string> &argv, const std::vector<std::string> &env, int listen_fd)
    : name_(argv.empty() ? "" : argv[0])
{
        std::vector<std::string> extra = env;
        if (listen_fd >= 0)
                extra.insert(extra.end(), {"LISTEN_FDS=1", listen_pid_name});
        std::vector<std::string> environment = child_environment(extra);
        char listen_pid[sizeof(listen_pid_name) + 16];
        std::vector<char *> c_argv, c_env;
        for (const std::string &a : argv)
                c_argv.push_back(const_cast<char *>(a.c_str()));
        c_argv.push_back(nullptr);
        for (const std::string &e : environment)
                c_env.push_back(e == listen_pid_name ? listen_pid : const_cast<char *>(e.c_str()));
        c_env.push_back(nullptr);
        memcpy(listen_pid, listen_pid_name, sizeof(listen_pid_name));

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
                if (listen_fd >= 0) {
                        if (listen_fd == systemd_first_fd)
                                fcntl(listen_fd, F_SETFD, 0);
                        else
                                dup2(listen_fd, systemd_first_fd);
                        child_format_listen_pid(listen_pid, getpid());
                }
                setpgid(0, 0);
                execvpe(c_argv[0], c_argv.data(), c_env.data());
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
        if (!changed_.wait_until(lock, deadline_after(seconds), [&] { return output_ended_; })) {
                lock.unlock();
                kill(-pid_, SIGKILL);
        } else {
                lock.unlock();
        }
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

size_t ChildProcess::count(const std::string &text) const
{
        return matching(text).size();
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

bool ChildProcess::exited()
{
        reap(WNOHANG);
        return reaped_;
}

int ChildProcess::wait_exit(double seconds)
{
        if (pid_ <= 0)
                return -1;
        const auto deadline = deadline_after(seconds);
        while (!exited() && Clock::now() < deadline) {
                // The output ends when the child (and whatever shares its pipe) exits.
                std::unique_lock lock(mutex_);
                changed_.wait_for(lock, std::chrono::milliseconds(20));
        }
        if (!exited()) {
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

std::vector<std::string> ChildProcess::matching(const std::string &text) const
{
        std::vector<std::string> out;
        for (const std::string &line : lines())
                if (line.find(text) != std::string::npos)
                        out.push_back(line);
        return out;
}

std::string ChildProcess::tail(size_t n) const
{
        const std::vector<std::string> all = lines();
        std::string out;
        for (size_t i = all.size() > n ? all.size() - n : 0; i < all.size(); i++)
                out += "  " + all[i] + "\n";
        return out.empty() ? "  (nothing)\n" : out;
}
