#include "common/fat.h"

#include "common/fat_name.h"
#include "common/host.h"
#include "common/iconvert.h"
#include "trace_log.h"

#include <cinttypes>
#include <fcntl.h>

namespace {

constexpr std::uint8_t volume_label_attribute = 0x08;
constexpr std::uint8_t directory_attribute = 0x10;
constexpr std::size_t longest_path = 255;

// The rest of the way to a file: what is still to be found, and what was found so far.
struct address {
    fat_direction direction;
    std::list<address_part> parts;
    std::string path;
};

struct matched_entry {
    std::string name; // as the result spells it
    bool is_directory;
    std::uint32_t first_cluster;
};

// The long name, or the short one as it is shown, in code page 866 both ways. Nothing for a long name that
// cannot be one.
std::optional<std::string> output_name(const fat_entry &entry, const std::optional<std::u16string> &long_name,
                                       fat_direction direction)
{
    std::string short_name = sfn_to_string(entry);
    if (direction == fat_direction::long_to_short)
        return short_name;
    if (long_name)
        return long_name_to_utf8(*long_name);
    if (entry[12] != 0)
        cp866_tolower(short_name);
    return pvl_iconv(short_name, "cp866", "utf-8");
}

bool matches(const fat_entry &entry, const std::optional<std::u16string> &long_name, const address_part &part,
             fat_direction direction)
{
    const std::string short_name = sfn_to_string(entry);
    if (direction == fat_direction::short_to_long)
        return part.name == short_name;
    trace_log("long_name = %s, entry_filename = %s, namePart=%s namePartUp= %s",
              long_name ? long_name_to_utf8(*long_name).value_or("").c_str() : "not_lfn", short_name.c_str(),
              part.name.c_str(), part.upper.c_str());
    return (long_name && *long_name == part.long_name) || part.upper == short_name;
}

matched_entry describe(const fat_directory &directory, const fat_entry &entry, std::string name)
{
    const std::uint32_t high_word = directory.volume.geometry.fat32 ? le16(entry, 20) : 0;
    return {.name = std::move(name),
            .is_directory = (entry[11] & directory_attribute) != 0,
            .first_cluster = high_word << 16 | le16(entry, 26)};
}

// The first entry of that name. A volume label is not a file, though it often has the name of a directory.
std::optional<matched_entry> find_entry(fat_directory &directory, const address_part &part,
                                        fat_direction direction)
{
    fat_entry entry;
    while (read_next_file_entry(directory, entry) == fat_read::entry) {
        std::optional<std::u16string> long_name;
        if (is_long_name_piece(entry)) {
            trace_log("START_READ_LFN");
            long_name = readLFN(directory, entry);
            if (!long_name) {
                if (entry[0] != 0)
                    trace_log("LFN read error!");
                continue;
            }
        }
        if (entry[11] == 0)
            trace_log("attr = 0");
        if (is_unused(entry) || (entry[11] & volume_label_attribute) ||
            !matches(entry, long_name, part, direction))
            continue;
        std::optional<std::string> name = output_name(entry, long_name, direction);
        // A separator inside a name would make two components of one, outside of the volume even.
        if (name && name->find_first_of("/\\") == std::string::npos)
            return describe(directory, entry, *std::move(name));
        trace_log("LFN read error!");
    }
    return std::nullopt;
}

void join_strings(std::string &path, char separator, const std::string &name)
{
    if (!path.empty())
        path += separator;
    path += name;
}

// Finds the next part and moves it to the path. Nothing for a directory in the last place or a file before
// it.
std::optional<matched_entry> take_next_part(fat_directory &directory, address &to)
{
    std::optional<matched_entry> found = find_entry(directory, to.parts.front(), to.direction);
    to.parts.pop_front();
    if (!found || found->is_directory == to.parts.empty())
        return std::nullopt;
    join_strings(to.path, to.direction == fat_direction::long_to_short ? '\\' : '/', found->name);
    if (to.path.size() > longest_path) {
        trace_log("Converted path is longer than %zu bytes", longest_path);
        return std::nullopt;
    }
    return found;
}

std::optional<std::string> find_in_dir(fat_volume &volume, std::uint32_t first_cluster, address to)
{
    trace_log("%s data start with %" PRId64, volume.geometry.fat32 ? "FAT32" : "FAT16",
              volume.geometry.data_start);
    while (!to.parts.empty()) {
        if (first_cluster == 0) {
            trace_log("Next file entries is empty/");
            return std::nullopt;
        }
        fat_directory directory = open_directory(volume, first_cluster);
        const std::optional<matched_entry> found = take_next_part(directory, to);
        if (!found)
            return std::nullopt;
        first_cluster = found->first_cluster;
    }
    return to.path;
}

std::optional<std::string> find_in_root_dir(fat_volume &volume, address to)
{
    fat_directory root = open_fat16_root(volume);
    const std::optional<matched_entry> found = take_next_part(root, to);
    if (!found || to.parts.empty())
        return found ? std::optional(to.path) : std::nullopt;
    return find_in_dir(volume, found->first_cluster, std::move(to));
}

std::optional<std::string> find_on_volume(int device, address to)
{
    std::array<std::uint8_t, 512> boot_sector;
    if (!device_window(device).read(0, boot_sector)) {
        trace_log("Cannot read the boot sector");
        return std::nullopt;
    }
    const std::optional<fat_geometry> geometry = read_geometry(boot_sector);
    if (!geometry) {
        trace_log("The boot sector describes no FAT volume");
        return std::nullopt;
    }
    fat_volume volume(*geometry, device);
    if (geometry->fat32) {
        trace_log("File system is FAT32");
        return find_in_dir(volume, geometry->root_cluster, std::move(to));
    }
    if (is_fat12(boot_sector)) {
        trace_log("File system is not supported!");
        return std::nullopt;
    }
    trace_log("File system is FAT16");
    return find_in_root_dir(volume, std::move(to));
}

} // namespace

std::optional<std::string> get_path_on_fat_part(const std::string &partition, const std::string &path,
                                                fat_direction direction)
{
    const std::string device_name = "/dev/" + partition;
    trace_log("Trying find %s on %s", path.c_str(), device_name.c_str());
    const owned_fd device(open(host_path(device_name).c_str(), O_RDONLY | O_CLOEXEC));
    if (!device) {
        trace_log("Cannot open dev file");
        return std::nullopt;
    }
    std::optional<std::list<address_part>> parts = getAddressParts(path, direction);
    if (!parts) {
        trace_log("Parser filename error");
        return std::nullopt;
    }
    std::optional<std::string> result =
        find_on_volume(device.get(), {.direction = direction, .parts = *std::move(parts), .path = {}});
    if (result)
        trace_log("converted path of %s - %s", path.c_str(), result->c_str());
    else
        trace_log("File %s not found", path.c_str());
    return result;
}

std::optional<std::string> get_sfn_path(const std::string &partition, const std::string &path)
{
    return get_path_on_fat_part(partition, path, fat_direction::long_to_short);
}

std::optional<std::string> get_lfn_path(const std::string &partition, const std::string &path)
{
    return get_path_on_fat_part(partition, path, fat_direction::short_to_long);
}
