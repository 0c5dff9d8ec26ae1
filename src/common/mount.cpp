#include "common/mount.h"

#include "common/environment.h"
#include "common/filesystem.h"
#include "common/host.h"
#include "common/mktmpdir.h"
#include "common/process.h"
#include "trace_log.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::string_view tmpdir_prefix = "/tmp/tarnel";

struct cleanup_step {
    std::string_view command;
    std::string_view pattern; // below each temporary directory
};

constexpr std::array<cleanup_step, 7> cleanup_steps = {{
    {"umount ", "/sd*"},
    {"umount ", "/hd*"},
    {"umount ", "/md*"},
    {"rmdir ", "/sd*"},
    {"rmdir ", "/hd*"},
    {"rmdir ", "/md*"},
    {"rmdir ", ""},
}};

// Where leftovers are looked for, if there are any: by one pattern, unless it would reach into something that
// is not ours. A link planted there ("/tmp/tarnel1/sda1" pointing at "/boot") would have us unmount what it
// points at, so then only our own directories are named, one by one.
std::vector<std::string> cleanup_places()
{
    std::vector<std::string> own;
    bool only_own = true;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(host_path("/tmp"), error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string path = "/tmp/" + entry->path().filename().string();
        if (!has_prefix(path, tmpdir_prefix))
            continue;
        const std::string number = path.substr(tmpdir_prefix.size());
        if (is_own_directory(entry->path().string(), 077) &&
            number.find_first_not_of("0123456789") == std::string::npos) {
            own.push_back(path);
        } else {
            trace_log("%s is not a directory of this program", path.c_str());
            only_own = false;
        }
    }
    if (error && error != std::errc::no_such_file_or_directory)
        only_own = false;
    return only_own && !own.empty() ? std::vector<std::string>{"/tmp/tarnel*"} : own;
}

std::string mount_command(const disk &d, const part &p, const std::string &directory)
{
    const file_system &kind = file_system_of(p);
    const std::string type = kind.mount_type ? kind.mount_type : *p.fs_type;
    const std::string device = "/dev/" + d.name + partition_separator(d.name) + std::to_string(p.index);
    return "mount -t " + type + " " + device + " " + directory + " " + kind.mount_options;
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
    if (run_command(mount_command(d, p, directory)) != 0) {
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

void umount_rm_tmpdir()
{
    for (const cleanup_step &step : cleanup_steps) {
        // Looked at again before every command, to leave little time for planting something.
        for (const std::string &place : cleanup_places()) {
            std::string command(step.command);
            command.append(place).append(step.pattern).append(" 2>/dev/null");
            // Failing is the normal case: there is nothing to clean up.
            static_cast<void>(run_command(command));
        }
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
