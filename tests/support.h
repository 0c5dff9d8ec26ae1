// What several tests share: scratch directories, a replaced machine, captured commands.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// What a test has replaced is put back once.
struct not_copied {
    not_copied() = default;
    not_copied(const not_copied &) = delete;
    not_copied &operator=(const not_copied &) = delete;
};

// A new directory under the test's temporary directory, removed with everything in it.
class scratch_directory : not_copied {
public:
    scratch_directory();
    ~scratch_directory();

    const std::filesystem::path &path() const { return path_; }
    // Writes a file (parent directories are made) and returns its path.
    std::filesystem::path write(const std::string &name, std::string_view content) const;

private:
    std::filesystem::path path_;
};

// While it lives, fixed paths such as "/proc/mounts" are opened below `root`. The table reader that was just
// built is there.
class replaced_host : not_copied {
public:
    explicit replaced_host(const std::filesystem::path &root);
    ~replaced_host();
};

// While it lives, shell commands are recorded instead of run; each one answers `status(command)`, or else 0.
class recorded_commands : not_copied {
public:
    recorded_commands();
    ~recorded_commands();

    std::vector<std::string> commands;
    std::function<int(const std::string &)> status;
};

// Whether what this process mounts from now on stays its own affair.
bool keep_mounts_private();

// While it lives, this process has an empty /tmp of its own: the program's directories there have names that
// go by the second, which tests that run at the same time would take from each other.
struct private_tmp : not_copied {
    private_tmp();
    ~private_tmp();
    const bool works;
};

// Four bytes as they lie on a disk.
std::string le32_bytes(std::uint32_t value);

// A whole file; empty when there is none.
std::string content_of(const std::filesystem::path &file);

// Changes some bytes of a file.
void overwrite(const std::filesystem::path &file, std::uint64_t offset, std::string_view bytes);

// Runs a tool such as mtools or sgdisk through the shell; fails the test, showing the output, when it fails.
// Returns its output and error output together.
std::string run_tool(const std::string &command);
