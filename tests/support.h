// What several tests share: scratch directories, a replaced machine, captured commands and trace lines.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// A new directory under the test's temporary directory, removed with everything in it.
class scratch_directory {
public:
    scratch_directory();
    ~scratch_directory();
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;

    const std::filesystem::path &path() const { return path_; }
    // Writes a file (parent directories are made) and returns its path.
    std::filesystem::path write(const std::string &name, std::string_view content) const;

private:
    std::filesystem::path path_;
};

// While it lives, fixed paths such as "/proc/mounts" are opened below `root`.
class replaced_host {
public:
    explicit replaced_host(const std::filesystem::path &root);
    ~replaced_host();
    replaced_host(const replaced_host &) = delete;
    replaced_host &operator=(const replaced_host &) = delete;
};

// While it lives, shell commands are recorded instead of run; each one answers `status(command)`, 0 by
// default.
class recorded_commands {
public:
    recorded_commands();
    ~recorded_commands();
    recorded_commands(const recorded_commands &) = delete;
    recorded_commands &operator=(const recorded_commands &) = delete;

    std::vector<std::string> commands;
    std::function<int(const std::string &)> status;
};

// While it lives, tracing is on and standard error is captured.
class captured_trace {
public:
    captured_trace();
    ~captured_trace();
    captured_trace(const captured_trace &) = delete;
    captured_trace &operator=(const captured_trace &) = delete;

    // What was written so far, without the "[module line function] " prefixes; ends the capture.
    std::string messages();

private:
    bool captured_ = true;
};

// Runs a tool such as mtools or sgdisk through the shell; fails the test, showing the output, when it fails.
// Returns its output and error output together.
std::string run_tool(const std::string &command);

// Whether a program is on the PATH.
bool have_tool(const std::string &name);
