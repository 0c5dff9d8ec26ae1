// What several tests share: scratch directories, a replaced machine, captured commands.
#pragma once

#include "common/filesystem.h"
#include "common/host.h"
#include "common/table_record.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

// A new directory under the test's temporary directory, removed with everything in it.
class scratch_directory {
public:
    scratch_directory()
    {
        // Some tests need a file system that the tool knows, which the usual place is not always on.
        const std::string usual = testing::TempDir();
        std::string name = (check_fs_type(usual) ? usual : BUILD_DIR) + "gtk-tarnel-test-XXXXXX";
        path_ = mkdtemp(name.data());
    }
    ~scratch_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;

    const std::filesystem::path &path() const { return path_; }

    // Writes a file (parent directories are made) and returns its path.
    std::filesystem::path write(const std::string &name, std::string_view content) const
    {
        std::filesystem::path file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::filesystem::path path_;
};

// While it lives, fixed paths such as "/proc/mounts" are opened below `root`. The table reader that was just
// built is there.
struct replaced_host {
    explicit replaced_host(const std::filesystem::path &root)
    {
        const auto reader = root / std::filesystem::path(table_reader_program).relative_path();
        std::filesystem::create_directories(reader.parent_path());
        std::filesystem::create_symlink(READ_TABLE, reader);
        set_host_root(root.string());
    }
    ~replaced_host() { set_host_root(""); }
};

// While it lives, shell commands are recorded instead of run; each one answers `status(command)`, or else 0.
struct recorded_commands {
    recorded_commands()
    {
        set_command_runner([this](const std::string &command) {
            commands.push_back(command);
            return status ? status(command) : 0;
        });
    }
    ~recorded_commands() { set_command_runner(nullptr); }

    std::vector<std::string> commands;
    std::function<int(const std::string &)> status;
};

// Whether what this process mounts from now on stays its own affair. Who is not root may be, in a namespace
// of users where nobody else is.
inline bool keep_mounts_private()
{
    const auto user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (geteuid() != 0 && unshare(CLONE_NEWUSER) == 0) {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
        std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
    }
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// While it lives, this process has an empty /tmp of its own: the program's directories there have names that
// go by the second, which tests that run at the same time would take from each other.
struct private_tmp {
    private_tmp() : works(keep_mounts_private() && mount("tarnel", "/tmp", "tmpfs", 0, nullptr) == 0) {}
    ~private_tmp()
    {
        if (works)
            umount("/tmp");
    }
    const bool works;
};

// Four bytes as they lie on a disk.
inline std::string le32_bytes(std::uint32_t value)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

// A whole file; empty when there is none.
inline std::string content_of(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Changes some bytes of a file.
inline void overwrite(const std::filesystem::path &file, std::uint64_t offset, std::string_view bytes)
{
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(offset)) << bytes;
}

// Runs a tool such as mtools or sgdisk through the shell; fails the test, showing the output, when it fails.
// Returns its output and error output together.
inline std::string run_tool(const std::string &command)
{
    const scratch_directory scratch;
    const std::string output = scratch.path() / "output";
    const std::string script = "exec >" + output + " 2>&1; PATH=$PATH:/usr/sbin:/sbin; " + command;
    EXPECT_EQ(std::system(script.c_str()), 0) << command << "\n" << content_of(output); // NOLINT
    return content_of(output);
}
