#include "common/disk.h"

#include "common/background.h"
#include "common/host.h"
#include "common/letters.h"
#include "common/mount_table.h"
#include "common/owned.h"
#include "common/partition_table.h"
#include "common/system_disk.h"
#include "common/visible_text.h"
#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t first_drive_number = 0x80;
// Partition numbers 0 to 127.
constexpr std::size_t part_slots = 128;
using part_slot = std::array<std::optional<part>, part_slots>;

// Passes over the rest of the line. False when the file ends first.
bool skip_line(std::FILE *stream)
{
    int c;
    do {
        c = std::getc(stream);
    } while (c != '\n' && c != EOF);
    return c == '\n';
}

// Whole disks sda to sdz, and arrays, whose partitions have a "p" in their names (md0p1).
bool is_disk_name(const std::string &name)
{
    if (name.starts_with("sd"))
        return name.size() <= 3 && !find_raid_mapping_for_device(name);
    return name.starts_with("md") && name.find('p') == std::string::npos;
}

// The format of /proc/partitions: two lines of heading, then "   8        0  488386584 sda".
std::vector<std::string> parse_partitions(std::FILE *stream)
{
    std::vector<std::string> names;
    for (int heading = 0; heading < 2; heading++) {
        if (!skip_line(stream))
            return names;
    }
    int major, minor;
    long long blocks;
    std::array<char, 256> name;
    while (std::fscanf(stream, "%3d %3d %20lld %255s", &major, &minor, &blocks, name.data()) == 4) {
        skip_line(stream);
        names.emplace_back(name.data());
    }
    return names;
}

// The names of all block devices, as the kernel lists them.
std::vector<std::string> listed_names()
{
    const owned_file partitions(std::fopen(host_path("/proc/partitions").c_str(), "re"));
    if (!partitions) {
        trace_log("Unable to open /proc/partitions");
        return {};
    }
    std::vector<std::string> names = parse_partitions(partitions.get());
    if (std::ferror(partitions.get())) {
        // The disks behind the place would be missing, and others numbered in their stead.
        trace_log("Unable to read /proc/partitions");
        return {};
    }
    return names;
}

std::vector<std::string> numbered_devices(const std::vector<std::string> &names)
{
    std::vector<std::string> devices;
    for (const std::string &name : names) {
        if (!is_device_name(name) || !is_disk_name(name))
            continue;
        trace_log("add device %s", name.c_str());
        std::string device = "/dev/" + name;
        devices.insert(std::ranges::upper_bound(devices, device), std::move(device));
    }
    return devices;
}

// Whether somebody would call it a disk: no partition, nothing that is made of other disks or of memory (only
// hardware has this link), no optical drive, floppy disk or flash chip, nor the areas of an eMMC disk that
// start the machine.
bool is_hardware_disk(const std::string &name)
{
    const auto is_kind = [&name](const char *kind) { return name.starts_with(kind); };
    const bool is_other = is_kind("sr") || is_kind("fd") || is_kind("mtdblock") ||
                          (is_kind("mmcblk") && name.find_first_of("br", 6) != std::string::npos);
    return !is_other && access(host_path("/sys/block/" + name + "/device").c_str(), F_OK) == 0;
}

// The disks of kinds that the firmware does not number. An array may be called anything, by root: what cannot
// stand in a path or on a command line is taken for a disk that cannot be opened.
std::vector<disk_note> note_other_kinds(const std::vector<std::string> &names)
{
    std::vector<disk_note> notes;
    for (const std::string &name : names) {
        if (!is_device_name(name)) {
            const std::string shown = visible_text(name, text_form::listing);
            trace_log("No name of a disk: %s", shown.c_str());
            if (is_disk_name(name))
                notes.push_back({shown, disk_note_reason::cannot_open});
            continue;
        }
        const bool is_sd = name.starts_with("sd");
        if ((is_sd && name.size() <= 3) || !is_hardware_disk(name))
            continue;
        notes.push_back({name, is_sd                        ? disk_note_reason::behind_sdz
                               : name.starts_with("nvme")   ? disk_note_reason::nvme
                               : name.starts_with("mmcblk") ? disk_note_reason::mmc
                                                            : disk_note_reason::other_kind});
    }
    return notes;
}

// The format of /proc/mdstat: "md0 : active raid1 sdb[1](F) sda[0]".
std::optional<std::string> parse_mdstat(std::FILE *stream, const std::string &member)
{
    std::array<char, 255> line;
    while (std::fgets(line.data(), line.size(), stream)) {
        line[std::strcspn(line.data(), "\r\n")] = '\0';
        char *rest = nullptr;
        const char *array = strtok_r(line.data(), " :", &rest);
        const char *state = strtok_r(nullptr, " :", &rest);
        if (!state || std::strcmp(state, "active") != 0)
            continue;
        while (const char *token = strtok_r(nullptr, " :", &rest)) {
            if (std::string_view(token, std::strcspn(token, "[")) == member)
                return array;
        }
    }
    return std::nullopt;
}

// What the device node says about the partition: its device number and where it is mounted.
void examine_node(part &p)
{
    struct stat status;
    if (lstat(host_path("/dev/" + partition_name(p)).c_str(), &status) == 0) {
        p.dev = status.st_rdev;
        p.mount_point = find_mountpoint_for_device(p.dev);
    }
    if (p.mount_point)
        trace_log("Detected mount point %s for partition %s%d", p.mount_point->c_str(), p.device.c_str(),
                  p.index);
    else
        trace_log("Cannot find mountpoint for partition %s%d", p.device.c_str(), p.index);
}

part make_part(const table_entry &entry, const std::string &device, const std::string &path)
{
    part p;
    p.index = entry.number;
    p.sect_before = static_cast<std::uint64_t>(entry.start);
    p.sect_total = static_cast<std::uint64_t>(entry.length);
    p.device = device;
    // libparted's PED_PARTITION_EXTENDED and PED_PARTITION_LOGICAL, alone: with another flag it is neither.
    p.extended = entry.type == 2;
    p.logical = entry.type == 1;
    p.lvm = entry.lvm;
    p.swap = entry.swap;
    if (p.lvm)
        trace_log("Partition: %s%d is lvm", path.c_str(), p.index);
    p.boot = entry.boot ? 1 : 0;
    p.fs_type = entry.fs_type;
    if (p.fs_type)
        trace_log("File system of %s%d: %s", device.c_str(), p.index, p.fs_type->c_str());
    p.type = entry.type;
    examine_node(p);
    return p;
}

// What reading one disk came to. The list has no disk that cannot be opened or is removable.
struct disk_contents {
    partition_table table;
    std::vector<disk_note> notes;
    bool is_listed = false;
};

// Whether the list has the disk, and what there is to note of it.
void judge_table(disk_contents &read, const std::string &device, bool removable)
{
    const partition_table &table = read.table;
    const std::string name = base_name(table.path);
    if (!table.openable) {
        trace_log_open("Cant open device %s", device.c_str());
        read.notes = {{name, removable ? disk_note_reason::removable : disk_note_reason::cannot_open}};
        return;
    }
    trace_log("Found device: %s; model: %s", table.path.c_str(), table.model.c_str());
    if (removable) {
        trace_log("Device %s is removable, skipping", table.path.c_str());
        read.notes = {{name, disk_note_reason::removable}};
        return;
    }
    read.is_listed = true;
    if (table.unreadable)
        read.notes.push_back({name, disk_note_reason::unreadable});
    if (!table.complaint.empty())
        read.notes.push_back({name, disk_note_reason::damaged, table.complaint});
    if (table.failure.empty())
        trace_log("Partition table is : %s", table.type.c_str());
    else
        trace_log("Cannot read the partition table of %s: %s", table.path.c_str(), table.failure.c_str());
}

// All that touches the disk itself.
disk_contents read_contents(const std::string &device, bool removable)
{
    disk_contents read;
    read.table =
        read_partition_table(device, removable ? table_depth::device_only : table_depth::whole_table);
    judge_table(read, device, removable);
    if (read.is_listed && read.table.type == "gpt") {
        const auto &supported = read.table.supported;
        if (!supported)
            read.notes.push_back({base_name(read.table.path), disk_note_reason::unknown_gpt});
        if (!supported || supported->empty())
            trace_log("Cannot get supported partition form gpt table of %s", read.table.path.c_str());
    }
    return read;
}

// A disk that is being read: a slow one holds up no other.
struct disk_reading {
    explicit disk_reading(const std::string &path) : device(path), removable(is_removable(path) != 0) {}

    const std::string device;
    const bool removable;
    disk_contents contents;
    background work{[this] { contents = read_contents(device, removable); }};
};

// The board's first disk is the one that the system starts from.
void move_first(std::list<disk_reading> &readings, const std::optional<std::string> &system_disk)
{
    const auto first = std::ranges::find_if(
        readings, [&system_disk](const disk_reading &reading) { return reading.device == system_disk; });
    if (first != readings.end())
        readings.splice(readings.begin(), readings, first);
}

// Whether the firmware knows the partition. One of a type that it does not know is noted.
bool is_supported(const disk &d, const disk_contents &read, const table_entry &entry,
                  std::vector<disk_note> &notes)
{
    if (!d.is_gpt ||
        (read.table.supported &&
         std::ranges::binary_search(*read.table.supported, static_cast<std::uint32_t>(entry.number))))
        return true;
    trace_log("Partition: %s%d is not supported, skipping", read.table.path.c_str(), entry.number);
    if (read.table.supported)
        notes.push_back({d.name + partition_separator(d.name) + std::to_string(entry.number),
                         disk_note_reason::other_type});
    return false;
}

void add_parts(disk &d, const disk_contents &read, std::vector<disk_note> &notes)
{
    const partition_table &table = read.table;
    part_slot slots;
    for (const table_entry &entry : table.entries) {
        const auto number = static_cast<std::uint32_t>(entry.number);
        trace_log("Found partition: %s%d", table.path.c_str(), entry.number);
        if (!is_supported(d, read, entry, notes))
            continue;
        if (number >= slots.size())
            trace_log("Partition: %s%d is beyond the last number %zu, skipping", table.path.c_str(),
                      entry.number, slots.size() - 1);
        else
            slots[number] = make_part(entry, d.name, table.path);
    }
    for (std::optional<part> &slot : slots) {
        if (slot)
            d.parts.push_back(std::move(*slot));
    }
}

disk make_disk(const disk_contents &read, std::uint32_t drive_number, std::vector<disk_note> &notes)
{
    const partition_table &table = read.table;
    disk d;
    d.name = base_name(table.path);
    d.drive_number = drive_number;
    d.is_gpt = table.type == "gpt";
    d.cylinders = table.cylinders;
    d.heads = table.heads;
    d.sectors = table.sectors;
    d.sector_size = table.sector_size;
    d.length = table.length;
    add_parts(d, read, notes);
    return d;
}

} // namespace

std::optional<std::string> find_raid_mapping_for_device(const std::string &name)
{
    const owned_file mdstat(std::fopen(host_path("/proc/mdstat").c_str(), "re"));
    if (!mdstat) {
        trace_log("Cannot open /proc/mdstat");
        return std::nullopt;
    }
    return parse_mdstat(mdstat.get(), name);
}

std::vector<std::string> get_device_from_proc()
{
    return numbered_devices(listed_names());
}

int is_removable(const std::string &device)
{
    const owned_file flag(
        std::fopen(host_path("/sys/block/" + base_name(device) + "/removable").c_str(), "re"));
    const int first = flag ? std::getc(flag.get()) : EOF;
    return first == EOF ? -1 : first - '0';
}

int get_disk_list(std::list<disk> &disks, std::vector<disk_note> &notes)
{
    const std::vector<std::string> names = listed_names();
    const std::vector<std::string> devices = numbered_devices(names);
    notes = note_other_kinds(names);
    if (devices.empty()) {
        trace_log("Error: cannot get any devices from /proc/partitions");
        return -1;
    }
    std::list<disk_reading> readings(devices.begin(), devices.end());
    std::optional<std::string> system_disk;
    if (devices.size() > 1)
        system_disk = find_system_disk(devices);
    move_first(readings, system_disk);
    disks.clear();
    std::uint32_t drive_number = first_drive_number;
    for (disk_reading &reading : readings) {
        reading.work.finish();
        const disk_contents &read = reading.contents;
        notes.insert(notes.end(), read.notes.begin(), read.notes.end());
        if (read.is_listed)
            disks.push_back(make_disk(read, drive_number++, notes));
    }
    if (!system_disk && disks.size() > 1) {
        for (const disk &d : disks)
            notes.push_back({d.name, disk_note_reason::any_first});
    }
    assign_letters(disks);
    return 0;
}
