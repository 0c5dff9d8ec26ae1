#include "common/host.h"

#include <csignal>
#include <cstdlib>
#include <sys/wait.h>

namespace {

std::string root;
std::function<int(const std::string &)> replaced_runner;

} // namespace

std::string host_path(std::string_view path)
{
    return root + std::string(path);
}

int run_command(const std::string &command)
{
    if (replaced_runner)
        return replaced_runner(command);
    // A mount that is killed half-way may stand all the same, so commands come to their end. What would end
    // this process waits for that; the shell and all that it starts ignore it. Blocking alone would not do
    // for them: some shells begin with no signal blocked.
    sigset_t ending, before;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ending, number);
    pthread_sigmask(SIG_BLOCK, &ending, &before);
    // NOLINTNEXTLINE: the commands are the documented interface, and judged by their exit status only.
    const int status = std::system(("trap '' HUP INT TERM; " + command).c_str());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void set_host_root(std::string new_root)
{
    root = std::move(new_root);
}

void set_command_runner(std::function<int(const std::string &)> runner)
{
    replaced_runner = std::move(runner);
}
