// Reads a disk's partition table with libparted. The library ends or overruns its process on some damaged
// tables, so it runs in a program of its own, as nobody with the right to read, with limits on time and
// memory, and with no system calls but those of reading; it hands plain values back.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct table_entry {
    std::int32_t number = 0;
    std::int32_t type = 0;              // libparted's: 0 normal, 1 logical, 2 extended
    std::int64_t start = 0, length = 0; // in logical sectors
    bool boot = false, lvm = false, swap = false;
    std::optional<std::string> fs_type;
};

struct partition_table {
    bool openable = true; // false: libparted could not open the device
    std::string path;     // of the device, as it was asked for
    std::string model;
    std::int64_t sector_size = 0;                       // logical, in bytes
    std::uint64_t length = 0;                           // whole disk, in logical sectors
    std::int32_t cylinders = 0, heads = 0, sectors = 0; // BIOS geometry
    // "msdos", "gpt", ...; empty when no table was read, also when a file system takes the whole disk, which
    // libparted calls a table of the type "loop"
    std::string type;
    std::vector<table_entry> entries; // without free space and metadata, in table order
    std::string failure;              // why no table was read, for the trace
    bool unreadable = false;          // none was read, although the disk seems to have one
    // Of a GPT that the firmware can read: the numbers, ascending, of the entries that it knows.
    std::optional<std::vector<std::uint32_t>> supported;
    std::string complaint; // the first of libparted's about the disk; empty when it had none
};

enum class table_depth { device_only, whole_table };

// Everything that can be learned about the device within the time, from a child process that reads it. Never
// changes the device. Facts that were not reached (no table, the reader died or hung) stay at their defaults;
// `failure` then says why. Disks may be read at the same time, each in a thread of its own.
[[nodiscard]] partition_table read_partition_table(const std::string &device, table_depth depth,
                                                   std::chrono::milliseconds time = std::chrono::seconds(30));
