#include "common/host.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string root;
std::function<int(const std::string &)> replaced_runner;

// The shell with the command, as a process of its own; -1 when it could not be started.
pid_t start_shell(std::string command)
{
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t streams;
    if (posix_spawnattr_init(&attributes) != 0 || posix_spawn_file_actions_init(&streams) != 0)
        return -1;
    // A mount that is killed half-way may stand all the same. Cut off from the terminal, it is reached by no
    // interrupt from there; and as it could not ask there either, it finds nothing to read.
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawn_file_actions_addopen(&streams, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    std::string shell = "sh", option = "-c";
    char *const words[] = {shell.data(), option.data(), command.data(), nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, "/bin/sh", &streams, &attributes, words, environ) != 0)
        child = -1;
    posix_spawn_file_actions_destroy(&streams);
    posix_spawnattr_destroy(&attributes);
    return child;
}

} // namespace

std::string host_path(std::string_view path)
{
    return root + std::string(path);
}

running_command start_command(const std::string &command)
{
    if (replaced_runner)
        return {.status = replaced_runner(command)};
    return {.shell = start_shell(command)};
}

int finish_command(const running_command &started)
{
    if (started.shell < 0)
        return started.status;
    int status = 0;
    while (waitpid(started.shell, &status, 0) != started.shell) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int run_command(const std::string &command)
{
    return finish_command(start_command(command));
}

void set_host_root(std::string new_root)
{
    root = std::move(new_root);
}

void set_command_runner(std::function<int(const std::string &)> runner)
{
    replaced_runner = std::move(runner);
}
