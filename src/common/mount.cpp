#include "common/mount.h"

#include "common/environment.h"
#include "common/filesystem.h"
#include "common/host.h"
#include "common/mktmpdir.h"
#include "common/owned.h"
#include "common/process.h"
#include "trace_log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

// What an earlier run left in a directory of its own: the directories of partitions. They are told by their
// names: the daemon of a mount may be gone, and the mount answers nothing.
std::vector<std::string> left_partitions(const fs::path &directory)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const bool is_partition = has_prefix(name, "sd") || has_prefix(name, "hd") || has_prefix(name, "md");
        if (is_partition && is_device_name(name))
            names.push_back(name);
    }
    return names;
}

// Where an earlier run may have left something. Nothing of others is: what is planted there
// ("/tmp/tarnel1/sda1" as a link to "/boot") would have us unmount what it leads to. In a directory of our
// own nobody plants anything.
std::vector<std::string> left_directories()
{
    std::vector<std::string> own;
    std::error_code error;
    for (fs::directory_iterator entry(host_path("/tmp"), error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string path = "/tmp/" + entry->path().filename().string();
        if (!has_prefix(path, tmpdir_prefix))
            continue;
        if (is_tmpdir_name(path) && is_own_directory(entry->path().string(), 077))
            own.push_back(path);
        else
            trace_log("%s is not a directory of this program", path.c_str());
    }
    return own;
}

// Whether nobody has the device, as the kernel itself sees it: mounts count that no table of ours shows.
// False when it cannot be opened.
bool is_free(const std::string &device)
{
    return static_cast<bool>(owned_fd(open(host_path(device).c_str(), O_RDONLY | O_EXCL | O_CLOEXEC)));
}

// Mounts for reading: a volume that is mounted for writing says so in sectors which the board checks, and
// what lies on a foreign one starts no program and opens no device. Returns the status of the command.
int mount_at(const disk &d, const part &p, const std::string &directory)
{
    constexpr int failed = 32; // of mount(8)
    const file_system &kind = file_system_of(p);
    const std::string type = kind.mount_type ? kind.mount_type : *p.fs_type;
    const std::string device = "/dev/" + d.name + partition_separator(d.name) + std::to_string(p.index);
    const std::string command = "mount -t " + type + " " + device + " " + directory + " -o ";
    const std::string options = std::string("nosuid,nodev,noexec") + kind.mount_options;
    const int status = run_command(command + "ro," + options);
    // It is mounted for writing already, where we do not see it or see but a part of it: the kernel keeps one
    // state for all its mounts.
    if (status == failed && !is_free(device)) {
        trace_log("Mounting %s beside what is mounted already", device.c_str());
        return run_command(command + options);
    }
    return status;
}

// Mounts the partition below the temporary directory and sets its `mount_point`. Returns whether it did.
bool mount_below(const std::string &tmpdir, const disk &d, part &p)
{
    trace_log("Partition /dev/%s%d does not have mount point", p.device.c_str(), p.index);
    trace_log("Mounting devices to %s", tmpdir.c_str());
    if (!is_device_name(d.name) || !is_device_name(p.device)) {
        trace_log("Unusable device name %s", p.device.c_str());
        return false;
    }
    const std::string directory = tmpdir + "/" + partition_name(p);
    trace_log("Make directory %s", directory.c_str());
    // Ours, as all of the temporary directory; what is mounted on it brings its own owner and mode.
    if (mkdir(directory.c_str(), 0770) != 0 && errno != EEXIST) {
        trace_log("Cannot make directory %s: %s", directory.c_str(), std::strerror(errno));
        return false;
    }
    if (!is_own_directory(directory, S_IWOTH)) {
        trace_log("%s is not a directory of this program", directory.c_str());
        return false;
    }
    trace_log("Try to mount partition /dev/%s%d to mountpoint %s", p.device.c_str(), p.index,
              directory.c_str());
    if (mount_at(d, p, directory) != 0) {
        // A mount that was killed half-way may stand all the same.
        if (rmdir(directory.c_str()) != 0 && errno == EBUSY && run_command("umount " + directory) == 0)
            rmdir(directory.c_str());
        trace_log("Cannot mount /dev/%s%d to %s", p.device.c_str(), p.index, directory.c_str());
        return false;
    }
    p.mount_point = directory;
    trace_log("Set mount point for partition /dev/%s%d: %s", p.device.c_str(), p.index, directory.c_str());
    return true;
}

// Appends the mounted partition to `mounts` and recognises the one that holds the template directory.
void list_partition(environment *env, disk &d, part &p, bool mounted)
{
    const std::string &directory = *p.mount_point;
    trace_log("Mounted /dev/%s%d to %s", p.device.c_str(), p.index, directory.c_str());
    mount_entry &entry = env->mounts.emplace_back();
    entry.disk = &d;
    entry.partition = &p;
    entry.mountpoint = directory;
    entry.letter = p.letter;
    entry.mounted = mounted ? 1 : 0;

    struct stat status;
    if (stat(directory.c_str(), &status) != 0) {
        trace_log("%s: %s", directory.c_str(), std::strerror(errno));
        return;
    }
    entry.dev = status.st_dev;
    if (entry.dev == env->pelva_db_dev) {
        trace_log("Pelva database detected at /dev/%s%d", p.device.c_str(), p.index);
        env->pelva_db_mt = &entry;
    }
}

void use_partition(environment *env, disk &d, part &p)
{
    trace_log("Processing partition: /dev/%s%d", p.device.c_str(), p.index);
    if (p.lvm) {
        trace_log("Partition /dev/%s%d is lvm, skipping...", p.device.c_str(), p.index);
        return;
    }
    if (!is_supported_fs(p)) {
        trace_log("Skipping /dev/%s%d (unsupported partition type: %s)...", p.device.c_str(), p.index,
                  p.fs_type ? p.fs_type->c_str() : "(null)");
        return;
    }
    const bool found_mounted = p.mount_point.has_value();
    if (found_mounted)
        trace_log("Partition /dev/%s%d have mount point: %s", p.device.c_str(), p.index,
                  p.mount_point->c_str());
    if (found_mounted || mount_below(env->tmpdir, d, p))
        list_partition(env, d, p, !found_mounted);
    else
        env->disk_notes.push_back({partition_name(p), disk_note_reason::not_mounted, *p.fs_type});
}

void remove_directory(const std::string &directory)
{
    if (rmdir(directory.c_str()) != 0)
        trace_log("Cannot remove %s: %s", directory.c_str(), std::strerror(errno));
}

} // namespace

// Every path is named: a shell's pattern would be expanded behind all checks.
void umount_rm_tmpdir()
{
    // Failing is no rare case: most of what is left is not mounted any more.
    const auto run = [](const char *command, const std::string &path) {
        static_cast<void>(run_command(command + path + " 2>/dev/null"));
    };
    for (const std::string &directory : left_directories()) {
        const std::vector<std::string> names = left_partitions(host_path(directory));
        for (const char *command : {"umount ", "rmdir "}) {
            for (const std::string &name : names)
                run(command, std::string(directory).append("/").append(name));
        }
        run("rmdir ", directory);
    }
}

int mount_partitions(environment *env)
{
    trace_log("* Enter");
    const std::optional<std::string> tmpdir = mktmpdir();
    if (!tmpdir) {
        trace_log("Cannot make a temporary directory");
        trace_log("* Failed");
        return -1;
    }
    env->tmpdir = *tmpdir;
    trace_log("Mounting devices to %s", env->tmpdir.c_str());
    env->mounts.clear();
    env->pelva_db_mt = nullptr;
    for (disk &d : env->disks) {
        trace_log("Processing disk: /dev/%s", d.name.c_str());
        for (part &p : d.parts) {
            if (!ending())
                use_partition(env, d, p);
        }
    }
    trace_log("* Success");
    return 0;
}

void umount_partitions(environment *env)
{
    trace_log("Umounting devices");
    for (const mount_entry &entry : env->mounts) {
        const std::string &directory = entry.mountpoint;
        if (entry.mounted != 1 || !has_prefix(directory, tmpdir_prefix))
            continue;
        trace_log("umount and remove %s", directory.c_str());
        if (run_command("umount " + directory) != 0)
            trace_log("Cannot umount %s", directory.c_str());
        remove_directory(directory);
    }
    remove_directory(env->tmpdir);
    env->tmpdir.clear();
}
