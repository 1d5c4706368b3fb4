#include "sim_process.h"

#include <csignal>

SimProcess::~SimProcess()
{
        stop();
}

void SimProcess::start(const std::vector<std::string> &argv, const std::vector<std::string> &env,
                       const std::string &ready_line)
{
        process_ = std::make_unique<ChildProcess>(argv, env);
        ready_ = process_->started() && process_->wait_for_line(ready_line);
}

int SimProcess::stop()
{
        if (!process_)
                return -1;
        if (!process_->exited())
                process_->send_signal(SIGTERM);
        return wait_exit();
}

int SimProcess::wait_exit(double seconds)
{
        ready_ = false;
        return process_ ? process_->wait_exit(seconds) : -1;
}
