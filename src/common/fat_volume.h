// The raw side of a FAT volume: its geometry, its cluster chains, and the entries of a directory in order.
// Layout: Microsoft "FAT: General Overview of On-Disk Format".
#pragma once

#include "common/bytes.h"
#include "common/owned.h"

#include <array>
#include <optional>
#include <vector>

using fat_entry = std::array<std::uint8_t, 32>;

// A partition's device read mostly forwards: small reads are served from one window, which grows while the
// reading goes on in sequence and starts small again after a jump.
class device_window {
public:
    explicit device_window(int device) : device_(device) {}
    // False when the device ends before the last byte or cannot be read.
    [[nodiscard]] bool read(std::uint64_t offset, std::span<std::uint8_t> bytes);

private:
    int device_;
    std::uint64_t start_ = 0;
    std::size_t next_length_ = 0;
    std::vector<std::uint8_t> window_;
};

// Positions and sizes in bytes, within the partition.
struct fat_geometry {
    bool fat32;
    std::uint64_t fat_start;
    std::uint64_t root_start; // FAT16
    std::uint64_t root_size;  // FAT16
    std::uint64_t data_start;
    std::uint64_t cluster_size;
    std::uint32_t root_cluster;  // FAT32
    std::uint32_t cluster_limit; // the volume's cluster numbers lie below
};

// Nothing when the sector cannot be a FAT volume's boot sector.
[[nodiscard]] std::optional<fat_geometry> read_geometry(byte_span boot_sector);
// Whether the volume has so few clusters that its FAT has 12-bit entries. For sectors with a geometry.
[[nodiscard]] bool is_fat12(byte_span boot_sector);

struct fat_volume {
    fat_geometry geometry;
    device_window entries;
    device_window table;

    fat_volume(const fat_geometry &of, int device) : geometry(of), entries(device), table(device) {}
};

enum class fat_read { entry = 0, end = 1, broken = -1 };

// A directory being read from its beginning.
struct fat_directory {
    fat_volume &volume;
    std::uint32_t cluster = 0; // 0: the FAT16 root directory, which is no chain
    std::uint64_t position = 0;
    std::uint64_t end = 0; // of the cluster, or of the FAT16 root directory
    std::uint64_t clusters_read = 1;
    fat_read state = fat_read::entry;
};

[[nodiscard]] fat_directory open_fat16_root(fat_volume &volume);
// A chain that starts outside the volume yields a directory that is broken from the start.
[[nodiscard]] fat_directory open_fat_directory(fat_volume &volume, std::uint32_t first_cluster);

// Reads the next entry of any kind, free ones too. `entry` is only changed by fat_read::entry; any other
// result is final.
[[nodiscard]] fat_read read_next_file_entry(fat_directory &directory, fat_entry &entry);
