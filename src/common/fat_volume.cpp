#include "common/fat_volume.h"

#include "trace_log.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cinttypes>
#include <cstring>

namespace {

constexpr std::size_t smallest_window = 4096;
constexpr std::size_t largest_window = 65536;

// The format's own limit is 65,536 entries. Drivers that are more generous exist, so a directory counts as
// damaged only at 16 times that; without a limit, a hostile chain could take the tool through a whole disk.
constexpr std::uint64_t largest_directory = 65536ULL * 16 * sizeof(fat_entry);

constexpr std::uint32_t first_data_cluster = 2;

std::uint32_t end_of_chain(const fat_geometry &geometry)
{
    return geometry.fat32 ? 0x0FFFFFF8 : 0xFFF8;
}

std::uint64_t fat_entry_width(bool fat32)
{
    return fat32 ? 4 : 2;
}

// The smaller of what the FAT can describe and, where the volume states its length, what it has room for.
std::uint32_t read_cluster_limit(byte_span boot_sector, const fat_geometry &geometry, std::uint64_t fat_size)
{
    std::uint64_t limit = fat_size / fat_entry_width(geometry.fat32);
    const std::uint64_t short_total = le16(boot_sector, 19);
    const std::uint64_t total = (short_total ? short_total : le32(boot_sector, 32)) * le16(boot_sector, 11);
    if (total) {
        const std::uint64_t data_size = total > geometry.data_start ? total - geometry.data_start : 0;
        limit = std::min(limit, data_size / geometry.cluster_size + first_data_cluster);
    }
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(limit, end_of_chain(geometry)));
}

bool seek_to_cluster(fat_directory &directory, std::uint32_t cluster)
{
    const fat_geometry &geometry = directory.volume.geometry;
    if (cluster < first_data_cluster || cluster >= geometry.cluster_limit) {
        trace_log("Cluster %" PRIx32 " lies outside of the volume", cluster);
        return false;
    }
    directory.cluster = cluster;
    directory.position = geometry.data_start + (cluster - first_data_cluster) * geometry.cluster_size;
    directory.end = directory.position + geometry.cluster_size;
    return true;
}

fat_read seek_to_next_cluster(fat_directory &directory)
{
    const fat_geometry &geometry = directory.volume.geometry;
    const std::uint64_t width = fat_entry_width(geometry.fat32);
    const std::uint64_t address = geometry.fat_start + directory.cluster * width;
    trace_log("End of cluster %" PRIx32 ", fat index address: %" PRIx64 ", fat_start: %" PRIx64 " ! ",
              directory.cluster, address, geometry.fat_start);
    std::array<std::uint8_t, 4> bytes{};
    if (!directory.volume.table.read(address, std::span(bytes).first(width))) {
        trace_log("Cannot read the FAT");
        return fat_read::broken;
    }
    const std::uint32_t next = le32(bytes, 0) & 0x0FFFFFFF;
    trace_log("Next cluster: %" PRIx32 "! fat index address: %" PRIx64, next, address);
    if (next == 0) {
        trace_log("Fat index is empty! ");
        return fat_read::broken;
    }
    if (next >= end_of_chain(geometry)) {
        trace_log("Final cluster");
        return fat_read::end;
    }
    ++directory.clusters_read;
    if (directory.clusters_read > geometry.cluster_limit - first_data_cluster ||
        directory.clusters_read * geometry.cluster_size > largest_directory) {
        trace_log("Cluster chain is too long");
        return fat_read::broken;
    }
    return seek_to_cluster(directory, next) ? fat_read::entry : fat_read::broken;
}

} // namespace

bool device_window::read(std::uint64_t offset, std::span<std::uint8_t> bytes)
{
    if (offset < start_ || offset + bytes.size() > start_ + window_.size()) {
        const bool in_sequence = !window_.empty() && offset == start_ + window_.size();
        next_length_ = in_sequence ? std::min(next_length_ * 2, largest_window) : smallest_window;
        window_.resize(next_length_);
        const ssize_t got =
            TEMP_FAILURE_RETRY(pread(device_, window_.data(), window_.size(), static_cast<off_t>(offset)));
        start_ = offset;
        window_.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        if (window_.size() < bytes.size())
            return false;
    }
    std::memcpy(bytes.data(), window_.data() + (offset - start_), bytes.size());
    return true;
}

std::optional<fat_geometry> read_geometry(byte_span boot_sector)
{
    const std::uint64_t sector = le16(boot_sector, 11);
    const std::uint64_t sectors_per_cluster = boot_sector[13];
    const std::uint64_t fats = boot_sector[16];
    if (sector < 512 || sector > 4096 || !std::has_single_bit(sector) ||
        !std::has_single_bit(sectors_per_cluster) || fats == 0)
        return std::nullopt;

    fat_geometry geometry{};
    geometry.fat32 = le16(boot_sector, 22) == 0;
    const std::uint64_t fat_size = (geometry.fat32 ? le32(boot_sector, 36) : le16(boot_sector, 22)) * sector;
    geometry.fat_start = le16(boot_sector, 14) * sector;
    geometry.root_start = geometry.fat_start + fats * fat_size;
    geometry.root_size = geometry.fat32 ? 0 : le16(boot_sector, 17) * sizeof(fat_entry);
    geometry.data_start = geometry.root_start + geometry.root_size;
    geometry.cluster_size = sectors_per_cluster * sector;
    geometry.root_cluster = geometry.fat32 ? le32(boot_sector, 44) : 0;
    geometry.cluster_limit = read_cluster_limit(boot_sector, geometry, fat_size);
    return geometry;
}

bool is_fat12(byte_span boot_sector)
{
    const std::uint64_t root_sectors = le16(boot_sector, 17) * sizeof(fat_entry) / le16(boot_sector, 11);
    const std::uint64_t overhead =
        root_sectors + le16(boot_sector, 14) + std::uint64_t{boot_sector[16]} * le16(boot_sector, 22);
    // Volumes of 65,536 sectors and more state a total of 0 here; the difference then wraps round to a
    // huge count, which is what they have.
    const std::uint64_t data_sectors = le16(boot_sector, 19) - overhead;
    return data_sectors / boot_sector[13] <= 0xFF4;
}

fat_directory open_fat16_root(fat_volume &volume)
{
    const fat_geometry &geometry = volume.geometry;
    return {
        .volume = volume, .position = geometry.root_start, .end = geometry.root_start + geometry.root_size};
}

fat_directory open_fat_directory(fat_volume &volume, std::uint32_t first_cluster)
{
    fat_directory directory{.volume = volume};
    if (!seek_to_cluster(directory, first_cluster))
        directory.state = fat_read::broken;
    return directory;
}

fat_read read_next_file_entry(fat_directory &directory, fat_entry &entry)
{
    if (directory.state != fat_read::entry)
        return directory.state;
    trace_log("%s data start with %" PRIx64, directory.volume.geometry.fat32 ? "FAT32" : "FAT16",
              directory.volume.geometry.data_start);
    if (directory.position == directory.end)
        directory.state = directory.cluster == 0 ? fat_read::end : seek_to_next_cluster(directory);
    if (directory.state == fat_read::entry && !directory.volume.entries.read(directory.position, entry)) {
        trace_log("Cannot read the directory at %" PRIx64, directory.position);
        directory.state = fat_read::broken;
    }
    if (directory.state == fat_read::entry)
        directory.position += entry.size();
    return directory.state;
}
