#include "support.h"

#include "common/filesystem.h"
#include "common/host.h"
#include "common/owned.h"
#include "common/table_record.h"

#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

scratch_directory::scratch_directory()
{
    // Some tests need a file system that the tool knows, which the usual place is not always on.
    static const std::string directory = check_fs_type(testing::TempDir()) ? testing::TempDir() : BUILD_DIR;
    std::string name = directory + "gtk-tarnel-test-XXXXXX";
    path_ = mkdtemp(name.data());
}

scratch_directory::~scratch_directory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path scratch_directory::write(const std::string &name, std::string_view content) const
{
    std::filesystem::path file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
}

replaced_host::replaced_host(const std::filesystem::path &root)
{
    const std::filesystem::path reader = root / std::filesystem::path(table_reader_program).relative_path();
    std::filesystem::create_directories(reader.parent_path());
    std::filesystem::create_symlink(READ_TABLE, reader);
    set_host_root(root.string());
}

replaced_host::~replaced_host()
{
    set_host_root("");
}

recorded_commands::recorded_commands()
{
    set_command_runner([this](const std::string &command) {
        commands.push_back(command);
        return status ? status(command) : 0;
    });
}

recorded_commands::~recorded_commands()
{
    set_command_runner(nullptr);
}

bool keep_mounts_private()
{
    // Who is not root may be, in a namespace of users where nobody else is.
    const auto user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (geteuid() != 0 && unshare(CLONE_NEWUSER) == 0) {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
        std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
    }
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

private_tmp::private_tmp() : works(keep_mounts_private() && mount("tarnel", "/tmp", "tmpfs", 0, nullptr) == 0)
{
}

private_tmp::~private_tmp()
{
    if (works)
        umount("/tmp");
}

std::string le32_bytes(std::uint32_t value)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

std::string content_of(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void overwrite(const std::filesystem::path &file, std::uint64_t offset, std::string_view bytes)
{
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(offset)) << bytes;
}

std::string run_tool(const std::string &command)
{
    const std::string with_errors = "PATH=$PATH:/usr/sbin:/sbin; { " + command + "\n} 2>&1";
    std::string output;
    std::FILE *pipe = popen(with_errors.c_str(), "r");
    if (!pipe) {
        ADD_FAILURE() << "cannot start: " << command;
        return output;
    }
    std::array<char, 65536> block;
    for (std::size_t got; (got = std::fread(block.data(), 1, block.size(), pipe)) > 0;)
        output.append(block.data(), got);
    const int status = pclose(pipe);
    EXPECT_EQ(status, 0) << command << "\n" << output;
    return output;
}
