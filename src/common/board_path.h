// The names by which the board knows files, and the way back: "D:\EFI\BOOT\GRUBX64.EFI" is the file that
// Linux shows as EFI/BOOT/grubx64.efi on a FAT partition. docs/template-format.md tells what goes into a
// record.
#pragma once

#include "common/fat.h"
#include "common/part.h"

#include <functional>
#include <list>
#include <optional>
#include <set>
#include <string>

struct disk;
struct environment;

// For one save or one start: what was read of a FAT volume is remembered.
class board_names {
public:
    // `wait` does what it is handed and returns when that is done. Before the first lookup on each FAT
    // volume, which is read from its device, its driver has to put everything there that it still holds.
    explicit board_names(std::function<void(const std::function<void()> &work)> wait);

    // `path` is letter, colon and the path from the partition's root, in the names that Linux shows but with
    // the board's separator, which stands in front of each component. Nothing, traced, when the board could
    // not read the name.
    [[nodiscard]] std::optional<std::string> of_file(const part &partition, const std::string &path);

    // The template directory, without a separator at its end: "C:/boot/pelva", "D:\pelva", "C:". On FAT a
    // component that is its short name but for case stays as it is. Nothing, traced, when it has no such name
    // or its partition no letter.
    [[nodiscard]] std::optional<std::string> of_template_directory(const environment &env);

    // A record's path in UTF-8 and with long names, behind letter, colon and separator as recorded. Without a
    // partition it is only good for being shown; then the separator tells what the bytes are. Nothing when it
    // cannot be converted.
    [[nodiscard]] std::optional<std::string> decode(std::list<disk> &disks, const std::string &record);

    // Where Linux shows a record's file below the partition's mount directory: with slashes, and a slash in
    // front. Nothing when it cannot be converted or, on FAT, there is no such file.
    [[nodiscard]] std::optional<std::string> shown_path(const part &partition, const std::string &record);

    // Whether files are looked up on the partition's device, and it can be read.
    [[nodiscard]] bool can_read(const part &partition);

private:
    fat_lookups &fat_of(const part &partition);
    [[nodiscard]] std::optional<std::string> directory_on_fat(const part &partition, const std::string &path);
    [[nodiscard]] std::string with_long_names(const part &partition, const std::string &record,
                                              const std::string &name);

    std::function<void(const std::function<void()> &)> wait_;
    std::set<std::string> synced_; // partitions
    fat_lookups fat_;
};

// Where a decoded record's file is below the partition's mount directory; `tail` is the record's path from
// its separator on.
[[nodiscard]] std::string local_path(const part &partition, const std::string &mountpoint,
                                     const std::string &tail);

// Whether the board would read a component of this name as two: names on FAT and NTFS may hold back-slashes,
// on the former only those of a damaged volume.
[[nodiscard]] inline bool holds_separator(const part &partition, const std::string &name)
{
    return !is_ext_fs(partition) && name.find('\\') != std::string::npos;
}
