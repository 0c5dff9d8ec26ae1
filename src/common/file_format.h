// The template files that the board's firmware reads: a name file, which lists files or sectors, and a check
// file with one check value for each of them. docs/template-format.md describes every byte.
#pragma once

#include "common/owned.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

// The list kind as the headers hold it.
enum class list_kind : std::uint32_t { sectors = 1, files = 2 };

// Where the templates are unless the environment variable PELVADB says otherwise.
constexpr const char *default_template_directory = "/boot/pelva";

constexpr std::size_t template_header_size = 1024;
constexpr std::size_t file_record_size = 256; // text and at least one NUL, in every record of ours
constexpr std::size_t check_value_size = 4;
using template_header = std::array<std::uint8_t, template_header_size>;

struct template_layout {
    const char *name_file;  // "bootfile.nam"
    const char *check_file; // "bootfile.chk"
    std::uint32_t record_size;
};
template_layout layout_of(list_kind kind);

// The header fields that both files of a pair share.
struct template_fields {
    std::uint32_t kind;
    std::uint32_t count;
    std::uint32_t record_size;
    bool operator==(const template_fields &) const = default;
};
template_fields fields_of(const template_header &header);

// One record of the sector list, exactly as it lies in the file.
struct sector_record {
    std::uint8_t drive_number; // BIOS drive number, 0x80 for the first disk
    std::array<std::uint8_t, 4> little_endian;
};
static_assert(sizeof(sector_record) == 5);
sector_record make_sector_record(std::uint32_t drive_number, std::uint32_t sector);
std::uint32_t sector_of(const sector_record &record); // LBA

// The firmware's path of the pair's name file, such as C:/boot/pelva/bootfile.nam. `directory_path` ends with
// its separator. Nothing when the header's field cannot hold it: the limit is 127 bytes.
[[nodiscard]] std::optional<std::string> template_name_path(const std::string &directory_path,
                                                            list_kind kind);

// Writes both headers, the name file's first. The streams stay open and belong to the caller.
// False when the name path is too long (nothing is written then) or a header was not taken whole.
[[nodiscard]] bool fill_structures(std::FILE *nam, std::FILE *chk, const std::string &directory_path,
                                   std::uint32_t count, list_kind kind);

// Replaces the record count in a header that is already written; the position in the stream is lost.
[[nodiscard]] bool rewrite_record_count(std::FILE *stream, std::uint32_t count);

// Reads both headers, the name file's first. Whether both are whole and carry their magics.
// A null check stream counts as a header that cannot be read.
[[nodiscard]] bool read_structures(std::FILE *nam, std::FILE *chk, template_header &nam_header,
                                   template_header &chk_header);

// Whether two open files and their headers, as read_structures has read them, make a whole pair: they agree
// with each other and hold exactly the records that they claim. Nothing when one cannot be examined.
[[nodiscard]] std::optional<bool> is_whole_pair(std::FILE *nam, const template_header &nam_header,
                                                std::FILE *chk, const template_header &chk_header,
                                                list_kind kind);

using count_callback = void (*)(std::uint32_t count, void *user);
using record_callback = int (*)(const char *text, void *user); // non-zero stops the reading

using unread_callback = void (*)(std::uint32_t first, std::uint32_t last,
                                 void *user); // record numbers from 0

// Passes every record's text, in file order, to `on_record`: up to its NUL, or all 256 bytes of a record that
// has none. The count in the header, which the file need not keep, goes to `on_count` first, and the records
// that cannot be read or that the file does not hold to `on_unread`, when these are given. Returns 0, also
// when records could not be read, -1 when bootfile.nam cannot be opened, -2 when a header is bad or the check
// file is missing.
[[nodiscard]] int read_file_list(const std::string &directory, count_callback on_count,
                                 record_callback on_record, void *user, unread_callback on_unread = nullptr);

// Whether anything lies where one of the two files of a pair belongs.
[[nodiscard]] bool template_exists(const std::string &directory, list_kind kind);

// The records of bootsect.nam, or null when the pair cannot be opened, a header is bad or a record is
// missing. `count` is set as soon as the headers are valid, also when null is returned after that.
[[nodiscard]] std::unique_ptr<sector_record[]> read_sector_list(const std::string &directory,
                                                                std::uint32_t &count);

// Opens a regular file of a template directory (a descriptor, or AT_FDCWD) for reading; null for anything
// else. Never waits, as opening a named pipe would.
[[nodiscard]] owned_file open_template_file(int directory, const std::string &name, int flags = 0);

// Bytes behind the header; 0 when the file has no whole header, nothing when it cannot be examined.
[[nodiscard]] std::optional<std::uint64_t> body_size(std::FILE *stream);
