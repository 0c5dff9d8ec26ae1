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
    std::string name; // long to short: as passed in, UTF-8; short to long: in code page 866, without blanks
    // Long to short only:
    std::string shown;        // in code page 866
    std::string upper;        // in code page 866 and upper case, without blanks
    std::u16string long_name; // as a directory's long-name entries hold it
};

// The components in order; empty ones are skipped. Nothing when the path has none, or a character that code
// page 866 lacks.
[[nodiscard]] std::optional<std::list<address_part>> getAddressParts(const std::string &path,
                                                                     fat_direction direction);

// Latin, Russian and the letter Yo; every other byte stays.
void cp866_toupper(std::string &text);
void cp866_tolower(std::string &text);

// The short name as the firmware knows it: "NAME.EXT" without any blank, and the name alone when the
// extension begins with one. `short_name` holds at least the eleven bytes of both fields; the result is in
// code page 866.
[[nodiscard]] std::string sfn_to_string(byte_span short_name);

// The short name as the kernel shows it: only the blanks that pad the two fields are dropped, and each field
// is in lower case when its bit of the case byte is set (0x08, 0x10). In code page 866.
[[nodiscard]] std::string shown_short_name(byte_span short_name, std::uint8_t case_byte);

// Makes short names equal that differ by case alone, in all letters of code page 866.
void fold_short_name(std::string &text);

// Free, deleted, or marked by a first byte of 0x05: not a file.
[[nodiscard]] bool is_unused(const fat_entry &entry);
// A part of a long name that is in use.
[[nodiscard]] bool is_long_name_piece(const fat_entry &entry);

// Reads the run of long-name entries that `entry` begins and leaves in `entry` what follows the run; a free
// entry when the directory ends there. Nothing when the run is not the name of what follows: its pieces have
// to count down to 1 from the one with 0x40, and each has to carry the checksum of the short name.
[[nodiscard]] std::optional<std::u16string> readLFN(fat_directory &directory, fat_entry &entry);

// Nothing when the name is not valid UTF-16.
[[nodiscard]] std::optional<std::string> long_name_to_utf8(const std::u16string &name);
