#include "common/system_disk.h"

#include "common/host.h"
#include "common/mount_table.h"
#include "common/part.h"
#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

namespace fs = std::filesystem;

// More block devices than any stack of them has.
constexpr std::size_t most_visited = 1000;

// "/sys/dev/block/253:0", the kernel's link to a block device.
fs::path sysfs_link(dev_t number)
{
    return host_path("/sys/dev/block/" + std::to_string(major(number)) + ":" + std::to_string(minor(number)));
}

// The mount that shows, of those at "/": the last one.
std::optional<std::string> device_mounted_at_root()
{
    const mount_table *table = current_mount_table();
    if (!table)
        return std::nullopt;
    const auto shown = std::find_if(table->lines.rbegin(), table->lines.rend(),
                                    [](const mount_data &line) { return line.directory == "/"; });
    return shown == table->lines.rend() ? std::nullopt : std::optional(shown->device);
}

std::optional<fs::path> device_of_root()
{
    std::error_code ignored;
    struct stat status;
    if (stat(host_path("/").c_str(), &status) == 0) {
        if (const fs::path link = sysfs_link(status.st_dev); fs::exists(link, ignored))
            return link;
    }
    // The files of btrfs show a device number that belongs to no device; the mount table names a real one.
    const std::optional<std::string> device = device_mounted_at_root();
    if (device && device->starts_with("/dev/") && stat(host_path(*device).c_str(), &status) == 0 &&
        S_ISBLK(status.st_mode))
        return sysfs_link(status.st_rdev);
    return std::nullopt;
}

// The listed devices that a block device lies on: a partition on its disk, a logical volume, an encrypted
// device or an array on the "slaves" that the kernel made it of. A listed array is what the firmware sees,
// not its members.
std::set<std::string> devices_below(const fs::path &top, const std::vector<std::string> &listed)
{
    std::set<std::string> found;
    std::set<fs::path> visited;
    std::vector<fs::path> pending = {top};
    while (!pending.empty() && visited.size() < most_visited) {
        std::error_code error;
        fs::path device = fs::canonical(pending.back(), error);
        pending.pop_back();
        if (error || !visited.insert(device).second)
            continue;
        if (fs::exists(device / "partition", error))
            device = device.parent_path();
        const std::string name = "/dev/" + device.filename().string();
        if (std::ranges::find(listed, name) != listed.end()) {
            found.insert(name);
            continue;
        }
        for (fs::directory_iterator slave(device / "slaves", error), end; !error && slave != end;
             slave.increment(error))
            pending.push_back(slave->path());
    }
    return found;
}

// Asks lsblk whether it shows the root file system on the disk (such as sda).
running_command ask_lsblk(const std::string &name)
{
    std::array<char, 256> command;
    std::snprintf(command.data(), command.size(), "lsblk | grep \"%s.*/$\" 1>/dev/null 2>&1", name.c_str());
    return start_command(command.data());
}

bool is_system_disk(const std::string &name, const running_command &asked)
{
    const bool is_system = finish_command(asked) == 0;
    if (is_system)
        trace_log("Disk %s is system disk", name.c_str());
    else
        trace_log("Disk %s not system disk", name.c_str());
    return is_system;
}

// The only device on which lsblk shows the root file system; none when it shows it on several: it shows the
// names of mappings, too, and those (sda5_crypt on sdb) say nothing; and a name may begin as another does:
// md1, md127.
std::set<std::string> shown_by_lsblk(const std::vector<std::string> &devices)
{
    std::vector<running_command> asked;
    asked.reserve(devices.size());
    for (const std::string &device : devices)
        asked.push_back(ask_lsblk(base_name(device)));
    std::set<std::string> shown;
    for (std::size_t i = 0; i < devices.size(); i++) {
        if (is_system_disk(base_name(devices[i]), asked[i]))
            shown.insert(devices[i]);
    }
    if (shown.size() > 1)
        shown.clear();
    return shown;
}

} // namespace

std::optional<std::string> find_system_disk(const std::vector<std::string> &devices)
{
    const std::optional<fs::path> root = device_of_root();
    std::set<std::string> carriers = root ? devices_below(*root, devices) : std::set<std::string>();
    if (carriers.empty())
        carriers = shown_by_lsblk(devices);
    const auto first = std::ranges::find_if(
        devices, [&carriers](const std::string &device) { return carriers.contains(device); });
    if (first == devices.end()) {
        trace_log("Nothing tells the system disk: the disks keep their order");
        return std::nullopt;
    }
    trace_log("The system disk is %s", first->c_str());
    return *first;
}
