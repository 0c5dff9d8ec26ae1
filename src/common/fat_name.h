// The names of a FAT directory: short ones in code page 866, long ones in UTF-16, and the parts of a path
// that are compared with them. Layout: Microsoft "FAT: General Overview of On-Disk Format" and its long-name
// appendix.
#pragma once

#include "common/fat.h"
#include "common/fat_volume.h"

#include <list>
#include <string>
#include <string_view>

// One component of the path to resolve.
struct address_part {
    std::string name;         // long to short: as passed in, UTF-8; short to long: in code page 866
    std::string upper;        // long to short only: in code page 866 and upper case
    std::u16string long_name; // long to short only: the name as a directory's long-name entries hold it
};

// The components in order; empty ones are skipped. Nothing when the path has none, or a character that code
// page 866 lacks.
[[nodiscard]] std::optional<std::list<address_part>> getAddressParts(const std::string &path,
                                                                     fat_direction direction);

// Latin, Russian and the letter Yo; every other byte stays.
void cp866_toupper(std::string &text);
void cp866_tolower(std::string &text);

// The entry's short name as "NAME.EXT", in code page 866. The blanks that pad the two fields are dropped;
// those before a field's last character belong to the name, and the file is only found with them.
[[nodiscard]] std::string sfn_to_string(const fat_entry &entry);

// Free, deleted, or marked by a first byte of 0x05: not a file.
[[nodiscard]] bool is_unused(const fat_entry &entry);
// A part of a long name that is in use.
[[nodiscard]] bool is_long_name_piece(const fat_entry &entry);

// Reads the run of long-name entries that `entry` begins and leaves in `entry` what follows the run; a free
// entry when the directory ends there. Nothing when no file follows or the name cannot be one.
[[nodiscard]] std::optional<std::u16string> readLFN(fat_directory &directory, fat_entry &entry);

// Nothing when the name is not valid UTF-16.
[[nodiscard]] std::optional<std::string> long_name_to_utf8(const std::u16string &name);
