// The kernel's mount table: its parsers, the table as it is now, and the lookups on it. It is read from
// /proc/self/mountinfo, and from /proc/mounts, which tells less, when that cannot be read.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// One mount, with the kernel's octal escapes ("\040" for a blank) decoded.
struct mount_data {
    std::string device; // what its maker called it: "/dev/sda1", "tmpfs", "host:/export"
    std::string directory;
    std::string type;
    std::string options;
    // Only /proc/self/mountinfo tells these two.
    std::string root;      // the part of its file system that it shows: "/" is all of it; empty when unknown
    std::uint64_t dev = 0; // st_dev of its files; 0 when unknown
    // Whether the line yields all its fields. The lookups pass over one that does not, so that fields may be
    // empty then, but its directory is one on which something is mounted all the same.
    bool complete = false;
};

struct mount_table {
    std::vector<mount_data> lines;        // in the kernel's order, each with a directory
    std::vector<std::string> directories; // of the lines; sorted, each once
};

// The format of /proc/mounts is that of fstab(5): fields are separated by blanks or tabs, which do not occur
// in them unescaped. A line yields its six fields when it fits "%255s %255s %15s %255s %1d %1d".
[[nodiscard]] mount_table parse_mounts(std::string_view text);

// The format of /proc/self/mountinfo, see proc(5). `lines` holds the mounts that can be seen: one that
// another mount hides, on the same directory or above it, is left out. `options` are those of the mount, then
// those of the file system.
[[nodiscard]] mount_table parse_mountinfo(std::string_view text);

// The table as it is now; null when it cannot be opened or read, errno then says why. Cheap to call for every
// file: the table is read again only after the kernel has signalled a change. Valid until the next call of a
// function of this header.
[[nodiscard]] const mount_table *current_mount_table();

// The mount that holds the path: the one with the longest directory that is the path or a directory above it,
// the first one of several on one directory. The path is taken as it is: absolute, without links. Nothing
// when there is none or the table cannot be read.
[[nodiscard]] std::optional<mount_data> mount_data_find(const std::string &path);

// The first directory under which all of the device's file system is seen: not a bind mount of a part of it.
// The device number is st_dev of its files, which is st_rdev of its node.
[[nodiscard]] std::optional<std::string> find_mountpoint_for_device(std::uint64_t dev);

// The names of those entries of a directory on which something is mounted: another device, a part of the same
// one, or none at all. They are no part of the file system that holds the directory.
[[nodiscard]] std::set<std::string, std::less<>> names_mounted_on(const std::string &directory);
