// FAT short-name resolver: translates between the long names that Linux shows and the 8.3 names by which the
// firmware knows files, by reading the volume from its device node. FAT16 and FAT32.
// Layout: Microsoft "FAT: General Overview of On-Disk Format" and its long-name appendix.
#pragma once

#include <memory>
#include <optional>
#include <string>

// Which names a path is given in, and so which ones come back.
enum class fat_direction { short_to_long = 0, long_to_short = 1 };

// `partition` is a name such as sda1; `path` its components below the root joined by '\', in UTF-8.
// Long to short gives code page 866 joined by '\'; short to long gives UTF-8 joined by '/'.
// Nothing when no such file exists, the path names a directory, or the volume cannot be trusted.
[[nodiscard]] std::optional<std::string>
get_path_on_fat_part(const std::string &partition, const std::string &path, fat_direction direction);

[[nodiscard]] std::optional<std::string> get_sfn_path(const std::string &partition, const std::string &path);
[[nodiscard]] std::optional<std::string> get_lfn_path(const std::string &partition, const std::string &path);

// The same for many paths: what was read of a volume is remembered, so that each directory is read once when
// the paths come in the order of the tree. For one save or one start: what is written meanwhile may not be
// seen.
class fat_lookups {
public:
    fat_lookups();
    ~fat_lookups();
    fat_lookups(const fat_lookups &) = delete;
    fat_lookups &operator=(const fat_lookups &) = delete;

    // Exactly what get_path_on_fat_part gives.
    [[nodiscard]] std::optional<std::string> find(const std::string &partition, const std::string &path,
                                                  fat_direction direction);

    // The same for a directory, long to short.
    [[nodiscard]] std::optional<std::string> find_directory(const std::string &partition,
                                                            const std::string &path);

    // Whether the partition's device can be read as a volume.
    [[nodiscard]] bool can_read(const std::string &partition);

private:
    [[nodiscard]] std::optional<std::string> find_entry(const std::string &partition, const std::string &path,
                                                        fat_direction direction, bool wants_directory);

    struct memory;
    std::unique_ptr<memory> memory_;
};
