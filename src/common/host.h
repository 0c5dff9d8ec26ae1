// The two doors to the machine that a test may replace: where fixed paths begin, and who runs shell
// commands. In the product both are the machine itself; no option or environment variable changes them.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>

// The path to open for a fixed path such as "/proc/mounts": the path itself in the product.
// Only for opening; records, rows and messages keep the real names.
[[nodiscard]] std::string host_path(std::string_view path);

// Runs a command as the C library's `system` does, with /bin/sh -c, and returns its exit status; -1 when the
// shell could not be started or the command was killed. The command is cut off from the terminal, has
// every signal's default disposition, and nothing to read: what is sent to this process or from its terminal
// ends neither the command nor the wait, and a file system's daemon that it leaves behind can be ended.
[[nodiscard]] int run_command(const std::string &command);

// The same in two steps, for commands that run side by side: each that was started is to be finished, which
// waits for its end.
struct running_command {
    pid_t shell = -1;
    int status = -1; // when there is no shell to wait for
};
[[nodiscard]] running_command start_command(const std::string &command);
[[nodiscard]] int finish_command(const running_command &started);

// For tests only. An empty root or runner restores the machine itself.
void set_host_root(std::string root);
void set_command_runner(std::function<int(const std::string &)> runner);
