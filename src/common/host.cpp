#include "common/host.h"

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
    // NOLINTNEXTLINE: the commands are the documented interface, and judged by their exit status only.
    const int status = std::system(command.c_str());
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
