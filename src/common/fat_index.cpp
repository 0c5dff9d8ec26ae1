#include "common/fat_index.h"

#include "common/iconvert.h"
#include "trace_log.h"

#include <algorithm>
#include <bit>

namespace {

constexpr std::uint8_t volume_label_attribute = 0x08;
constexpr std::uint8_t directory_attribute = 0x10;
constexpr std::size_t names_each = 3; // at most, of the kinds of names
constexpr std::size_t none = SIZE_MAX;

std::string_view bytes_of(std::u16string_view text)
{
    return {reinterpret_cast<const char *>(text.data()), text.size() * sizeof(char16_t)};
}

// A separator inside a name would make two components of one, and the dots leave the directory.
bool is_component(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." && name.find_first_of("/\\") == name.npos;
}

std::string folded(std::string text)
{
    fold_short_name(text);
    return text;
}

} // namespace

fat_index::fat_index(fat_directory &directory)
{
    read_files(directory);
    slots_.resize(std::bit_ceil(2 * names_each * files_.size() + 1));
    for (std::size_t i = 0; i < files_.size(); ++i) {
        const fat_file &file = files_[i];
        add_name(key::record, sfn_to_string(file.short_name), i);
        if (file.long_length > 0) {
            add_name(key::long_name, bytes_of(long_name(file)), i);
        } else {
            add_name(key::shown, shown_short_name(file.short_name, file.case_byte), i);
            add_name(key::folded, folded(shown_short_name(file.short_name, 0)), i);
        }
    }
}

void fat_index::read_files(fat_directory &directory)
{
    fat_entry entry;
    while (read_next_file_entry(directory, entry) == fat_read::entry) {
        std::optional<std::u16string> long_name;
        if (is_long_name_piece(entry)) {
            trace_log("START_READ_LFN");
            long_name = readLFN(directory, entry);
            if (!long_name && entry[0] != 0)
                trace_log("LFN read error!");
        }
        if (entry[11] == 0)
            trace_log("attr = 0");
        // A volume label is not a file, though it often has the name of a directory.
        if (!is_unused(entry) && !(entry[11] & volume_label_attribute) && is_component(sfn_to_string(entry)))
            append_file(directory, entry, long_name.value_or(u""));
    }
}

void fat_index::append_file(const fat_directory &directory, const fat_entry &entry,
                            const std::u16string &long_name)
{
    const std::uint32_t high_word = directory.volume.geometry.fat32 ? le16(entry, 20) : 0;
    fat_file &file = files_.emplace_back();
    std::copy_n(entry.begin(), file.short_name.size(), file.short_name.begin());
    file.case_byte = entry[12];
    file.is_directory = (entry[11] & directory_attribute) != 0;
    file.first_cluster = high_word << 16 | le16(entry, 26);
    file.long_length = static_cast<std::uint16_t>(long_name.size());
    file.long_start = static_cast<std::uint32_t>(long_names_.size());
    long_names_ += long_name;
}

std::u16string_view fat_index::long_name(const fat_file &file) const
{
    return std::u16string_view(long_names_).substr(file.long_start, file.long_length);
}

bool fat_index::has_name(std::size_t number, key kind, std::string_view name) const
{
    const fat_file &file = files_[number];
    switch (kind) {
    case key::record:
        return name == sfn_to_string(file.short_name);
    case key::shown:
        return name == shown_short_name(file.short_name, file.case_byte);
    case key::folded:
        return name == folded(shown_short_name(file.short_name, 0));
    case key::long_name:
        return name == bytes_of(long_name(file));
    }
    return false;
}

// Where the name stands, or the free place where it belongs.
std::size_t fat_index::slot_of(key kind, std::string_view name) const
{
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = (hash_(name) + static_cast<std::size_t>(kind)) & mask;
    for (; slots_[at]; at = (at + 1) & mask) {
        const std::uint32_t slot = slots_[at] - 1;
        if (static_cast<key>(slot % 4) == kind && has_name(slot / 4, kind, name))
            break;
    }
    return at;
}

void fat_index::add_name(key kind, std::string_view name, std::size_t file)
{
    std::uint32_t &slot = slots_[slot_of(kind, name)];
    if (!slot)
        slot = static_cast<std::uint32_t>(file * 4 + static_cast<std::size_t>(kind) + 1);
}

std::size_t fat_index::find_file(key kind, std::string_view name) const
{
    const std::uint32_t slot = slots_[slot_of(kind, name)];
    return slot ? (slot - 1) / 4 : none;
}

const fat_file *fat_index::find_record(std::string_view text) const
{
    const std::size_t found = find_file(key::record, text);
    return found == none ? nullptr : &files_[found];
}

const fat_file *fat_index::find_shown(const address_part &part) const
{
    std::size_t found =
        std::min(find_file(key::long_name, bytes_of(part.long_name)), find_file(key::shown, part.shown));
    if (found == none)
        found = find_file(key::folded, folded(part.shown));
    if (found == none)
        found = find_file(key::record, part.upper);
    if (found == none)
        return nullptr;
    const fat_file &file = files_[found];
    const std::string record = sfn_to_string(file.short_name);
    trace_log("long_name = %s, entry_filename = %s, namePart=%s namePartUp= %s",
              file.long_length ? shown_name(file).value_or("").c_str() : "not_lfn", record.c_str(),
              part.name.c_str(), part.upper.c_str());
    if (find_file(key::record, record) != found) {
        trace_log("The firmware finds another file by the name %s", record.c_str());
        return nullptr;
    }
    return &file;
}

std::optional<std::string> fat_index::shown_name(const fat_file &file) const
{
    std::optional<std::string> name;
    if (file.long_length > 0) {
        name = long_name_to_utf8(std::u16string(long_name(file)));
    } else {
        std::string text = shown_short_name(file.short_name, 0);
        if (file.case_byte != 0)
            cp866_tolower(text);
        name = pvl_iconv(text, "cp866", "utf-8");
    }
    if (name && is_component(*name))
        return name;
    trace_log("LFN read error!");
    return std::nullopt;
}
