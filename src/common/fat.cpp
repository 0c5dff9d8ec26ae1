#include "common/fat.h"

#include "common/fat_index.h"
#include "common/host.h"
#include "trace_log.h"

#include <algorithm>
#include <cinttypes>
#include <fcntl.h>
#include <map>

namespace {

constexpr std::size_t longest_path = 255;
// Of all directories that are remembered, beside the one in use: as many as one directory can hold.
constexpr std::size_t most_files_remembered = 65536UL * 16;
// Paths of 255 bytes have no more directories.
constexpr std::size_t most_directories_remembered = 128;

// The rest of the way to a file: what is still to be found, and what was found so far.
struct address {
    fat_direction direction;
    bool wants_directory; // at the end of the path
    std::list<address_part> parts;
    std::string path;
};

struct matched_entry {
    std::string name; // as the result spells it
    bool is_directory;
    std::uint32_t first_cluster;
};

struct open_volume {
    owned_fd device;
    fat_volume volume;
};

// Opens the device of a partition. Nothing, traced, when it is no volume of a kind that is known here.
std::optional<open_volume> open_partition(const std::string &device_name)
{
    owned_fd device(open(host_path(device_name).c_str(), O_RDONLY | O_CLOEXEC));
    if (!device) {
        trace_log("Cannot open dev file");
        return std::nullopt;
    }
    std::array<std::uint8_t, 512> boot_sector;
    if (!device_window(device.get()).read(0, boot_sector)) {
        trace_log("Cannot read the boot sector");
        return std::nullopt;
    }
    const std::optional<fat_geometry> geometry = read_geometry(boot_sector);
    if (!geometry) {
        trace_log("The boot sector describes no FAT volume");
        return std::nullopt;
    }
    if (!geometry->fat32 && is_fat12(boot_sector)) {
        trace_log("File system is not supported!");
        return std::nullopt;
    }
    const int descriptor = device.get();
    return open_volume{std::move(device), fat_volume(*geometry, descriptor)};
}

void join_strings(std::string &path, char separator, const std::string &name)
{
    if (!path.empty())
        path += separator;
    path += name;
}

std::optional<matched_entry> find_entry(const fat_index &directory, const address_part &part,
                                        fat_direction direction)
{
    const bool to_short = direction == fat_direction::long_to_short;
    const fat_file *found = to_short ? directory.find_shown(part) : directory.find_record(part.name);
    if (!found)
        return std::nullopt;
    std::optional<std::string> name =
        to_short ? sfn_to_string(found->short_name) : directory.shown_name(*found);
    if (!name)
        return std::nullopt;
    return matched_entry{*std::move(name), found->is_directory, found->first_cluster};
}

// Finds the next part and moves it to the path. Nothing for what is no directory before the last place, or
// not what is wanted there.
std::optional<matched_entry> take_next_part(const fat_index &directory, address &to)
{
    std::optional<matched_entry> found = find_entry(directory, to.parts.front(), to.direction);
    to.parts.pop_front();
    if (!found || found->is_directory != (!to.parts.empty() || to.wants_directory))
        return std::nullopt;
    join_strings(to.path, to.direction == fat_direction::long_to_short ? '\\' : '/', found->name);
    if (to.path.size() > longest_path) {
        trace_log("Converted path is longer than %zu bytes", longest_path);
        return std::nullopt;
    }
    return found;
}

} // namespace

struct fat_lookups::memory {
    struct directory {
        const fat_volume *volume;
        std::uint32_t first_cluster; // 0: the FAT16 root directory
        fat_index index;
    };

    std::map<std::string, open_volume> volumes; // by partition
    std::list<directory> directories;           // the one last used comes first
    std::size_t files = 0;                      // in all of them

    fat_volume *volume_of(const std::string &partition);
    const fat_index &read_directory(fat_volume &volume, std::uint32_t first_cluster);
    void forget_what_is_too_much();
    std::optional<std::string> find_in_dir(fat_volume &volume, std::uint32_t first_cluster, address to);
    std::optional<std::string> find_in_root_dir(fat_volume &volume, address to);
};

fat_volume *fat_lookups::memory::volume_of(const std::string &partition)
{
    const auto found = volumes.find(partition);
    if (found != volumes.end())
        return &found->second.volume;
    std::optional<open_volume> opened = open_partition("/dev/" + partition);
    return opened ? &volumes.emplace(partition, *std::move(opened)).first->second.volume : nullptr;
}

// Valid until the next directory is read.
const fat_index &fat_lookups::memory::read_directory(fat_volume &volume, std::uint32_t first_cluster)
{
    const auto known = std::ranges::find_if(directories, [&](const directory &one) {
        return one.volume == &volume && one.first_cluster == first_cluster;
    });
    if (known != directories.end()) {
        directories.splice(directories.begin(), directories, known);
    } else {
        fat_directory reader =
            first_cluster == 0 ? open_fat16_root(volume) : open_fat_directory(volume, first_cluster);
        directories.push_front({&volume, first_cluster, fat_index(reader)});
        files += directories.front().index.file_count();
        forget_what_is_too_much();
    }
    return directories.front().index;
}

void fat_lookups::memory::forget_what_is_too_much()
{
    while (directories.size() > 1 &&
           (files > most_files_remembered || directories.size() > most_directories_remembered)) {
        files -= directories.back().index.file_count();
        directories.pop_back();
    }
}

std::optional<std::string> fat_lookups::memory::find_in_dir(fat_volume &volume, std::uint32_t first_cluster,
                                                            address to)
{
    trace_log("%s data start with %" PRId64, volume.geometry.fat32 ? "FAT32" : "FAT16",
              volume.geometry.data_start);
    while (!to.parts.empty()) {
        if (first_cluster == 0) {
            trace_log("Next file entries is empty/");
            return std::nullopt;
        }
        const std::optional<matched_entry> found = take_next_part(read_directory(volume, first_cluster), to);
        if (!found)
            return std::nullopt;
        first_cluster = found->first_cluster;
    }
    return to.path;
}

std::optional<std::string> fat_lookups::memory::find_in_root_dir(fat_volume &volume, address to)
{
    const std::optional<matched_entry> found = take_next_part(read_directory(volume, 0), to);
    if (!found || to.parts.empty())
        return found ? std::optional(to.path) : std::nullopt;
    return find_in_dir(volume, found->first_cluster, std::move(to));
}

fat_lookups::fat_lookups() : memory_(std::make_unique<memory>()) {}

fat_lookups::~fat_lookups() = default;

std::optional<std::string> fat_lookups::find(const std::string &partition, const std::string &path,
                                             fat_direction direction)
{
    return find_entry(partition, path, direction, false);
}

std::optional<std::string> fat_lookups::find_directory(const std::string &partition, const std::string &path)
{
    return find_entry(partition, path, fat_direction::long_to_short, true);
}

bool fat_lookups::can_read(const std::string &partition)
{
    return memory_->volume_of(partition) != nullptr;
}

std::optional<std::string> fat_lookups::find_entry(const std::string &partition, const std::string &path,
                                                   fat_direction direction, bool wants_directory)
{
    trace_log("Trying find %s on /dev/%s", path.c_str(), partition.c_str());
    fat_volume *volume = memory_->volume_of(partition);
    if (!volume)
        return std::nullopt;
    std::optional<std::list<address_part>> parts = getAddressParts(path, direction);
    if (!parts) {
        trace_log("Parser filename error");
        return std::nullopt;
    }
    address to = {
        .direction = direction, .wants_directory = wants_directory, .parts = *std::move(parts), .path = {}};
    const fat_geometry &geometry = volume->geometry;
    trace_log("File system is %s", geometry.fat32 ? "FAT32" : "FAT16");
    std::optional<std::string> result =
        geometry.fat32 ? memory_->find_in_dir(*volume, geometry.root_cluster, std::move(to))
                       : memory_->find_in_root_dir(*volume, std::move(to));
    if (result)
        trace_log("converted path of %s - %s", path.c_str(), result->c_str());
    else
        trace_log("File %s not found", path.c_str());
    return result;
}

std::optional<std::string> get_path_on_fat_part(const std::string &partition, const std::string &path,
                                                fat_direction direction)
{
    return fat_lookups().find(partition, path, direction);
}

std::optional<std::string> get_sfn_path(const std::string &partition, const std::string &path)
{
    return get_path_on_fat_part(partition, path, fat_direction::long_to_short);
}

std::optional<std::string> get_lfn_path(const std::string &partition, const std::string &path)
{
    return get_path_on_fat_part(partition, path, fat_direction::short_to_long);
}
