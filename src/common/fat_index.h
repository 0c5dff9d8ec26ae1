// A FAT directory read once: its files and directories in order, found by their names.
#pragma once

#include "common/fat_name.h"
#include "common/fat_volume.h"
#include "common/name_hash.h"

#include <string>
#include <string_view>
#include <vector>

struct fat_file {
    std::array<std::uint8_t, 11> short_name;
    std::uint8_t case_byte;
    bool is_directory;
    std::uint16_t long_length; // in UTF-16 units; 0: it has no long name
    std::uint32_t long_start;
    std::uint32_t first_cluster;
};

class fat_index {
public:
    // Reads on from where `directory` stands to its end; what lies behind a damaged place is not seen.
    explicit fat_index(fat_directory &directory);

    // The first file that the firmware knows by this text.
    [[nodiscard]] const fat_file *find_record(std::string_view text) const;

    // The file that Linux shows by this name. When no name is equal, the first whose short name is, without
    // regard to case: mount options decide how those are shown; at last the first with that record text.
    // Nothing for a file whose record text leads to another one.
    [[nodiscard]] const fat_file *find_shown(const address_part &part) const;

    // Its long name, or its short one in lower case when its case byte says so. Nothing for a name that
    // cannot be one.
    [[nodiscard]] std::optional<std::string> shown_name(const fat_file &file) const;

    // How many files it holds.
    [[nodiscard]] std::size_t file_count() const { return files_.size(); }

private:
    enum class key : std::uint8_t { record, shown, folded, long_name };

    void read_files(fat_directory &directory);
    void append_file(const fat_directory &directory, const fat_entry &entry, const std::u16string &long_name);
    void add_name(key kind, std::string_view name, std::size_t file);
    [[nodiscard]] bool has_name(std::size_t file, key kind, std::string_view name) const;
    [[nodiscard]] std::size_t slot_of(key kind, std::string_view name) const;
    [[nodiscard]] std::size_t find_file(key kind, std::string_view name) const;
    [[nodiscard]] std::u16string_view long_name(const fat_file &file) const;

    std::vector<fat_file> files_;
    std::u16string long_names_;
    // The first file of each name, and the kind of the name. A power of two of them, at most half of them
    // full.
    std::vector<std::uint32_t> slots_;
    name_hash hash_;
};
