// The kernel's mount table, /proc/mounts: its parser, the table as it is now, and the lookups on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One line of /proc/mounts, with the kernel's octal escapes ("\040" for a blank) decoded.
struct mount_data {
    std::string device;
    std::string directory;
    std::string type;
    std::string options;
};

struct mount_table {
    std::vector<mount_data> lines; // every line, in order; fields that a line lacks are empty
    // The lookups read lines with the fixed format "%255s %255s %15s %255s %1d %1d" and stop at the first one
    // that does not fit it. This many lines stand before that one.
    std::size_t scanned = 0;
};

// The format is that of fstab(5): fields are separated by blanks or tabs, which do not occur in them
// unescaped.
[[nodiscard]] mount_table parse_mount_table(std::string_view text);

// The table as it is now; null when it cannot be opened or read, errno then says why. Cheap to call for every
// file: the table is read again only after the kernel has signalled a change. Valid until the next call of a
// function of this header.
[[nodiscard]] const mount_table *current_mount_table();

// The mount whose directory is the longest prefix of the path, compared byte by byte (the mount "/bo" matches
// "/boot"); the first one of several equally long ones. Nothing when there is none or the table cannot be
// read.
[[nodiscard]] std::optional<mount_data> mount_data_find(const std::string &path);

// The first mount directory whose st_dev is the device number.
[[nodiscard]] std::optional<std::string> find_mountpoint_for_device(std::uint64_t dev);
