#include "common/fat_name.h"

#include "common/iconvert.h"
#include "trace_log.h"

#include <algorithm>
#include <cinttypes>
#include <iterator>

namespace {

constexpr std::uint8_t long_name_attribute = 0x0F;
// 255 characters need 20 entries of 13.
constexpr std::size_t most_pieces = 20;

std::vector<std::string> split(const std::string &path)
{
    std::vector<std::string> names;
    for (std::size_t start = 0; start < path.size();) {
        const std::size_t end = std::min(path.find('\\', start), path.size());
        if (end > start)
            names.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return names;
}

std::optional<std::u16string> to_utf16(const std::string &name)
{
    glong length = 0;
    const std::unique_ptr<gunichar2, glib_freer> units(
        g_utf8_to_utf16(name.data(), static_cast<glong>(name.size()), nullptr, &length, nullptr));
    if (!units)
        return std::nullopt;
    return std::u16string(units.get(), units.get() + length);
}

// A long name that grows to the front, as its parts are stored last part first.
struct name_in_reverse {
    std::array<char16_t, most_pieces * 13> units;
    std::size_t start = units.size();
};

// Puts the characters of one long-name entry, up to the first zero one, before the name.
void prepend_piece(name_in_reverse &name, const fat_entry &entry)
{
    static constexpr std::array<std::uint8_t, 13> offsets = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
    std::size_t length = 0;
    while (length < offsets.size() && le16(entry, offsets[length]) != 0)
        ++length;
    name.start -= length;
    for (std::size_t i = 0; i < length; ++i)
        name.units[name.start + i] = le16(entry, offsets[i]);
}

// A field of a short name without the blanks that pad it.
std::string remove_spaces(byte_span field)
{
    std::string text(field.begin(), std::find(field.begin(), field.end(), 0));
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

} // namespace

std::optional<std::list<address_part>> getAddressParts(const std::string &path, fat_direction direction)
{
    if (path.empty()) {
        trace_log("filename is empty!");
        return std::nullopt;
    }
    std::optional<std::string> converted = pvl_iconv(path, "utf8", "cp866");
    if (!converted) {
        trace_log("Recoding error!");
        return std::nullopt;
    }
    const bool to_short = direction == fat_direction::long_to_short;
    std::list<address_part> parts;
    for (const std::string &name : split(to_short ? path : *converted))
        parts.push_back({.name = name, .upper = {}, .long_name = {}});
    if (parts.empty()) {
        trace_log("filename is incorrect!");
        return std::nullopt;
    }
    if (!to_short)
        return parts;

    cp866_toupper(*converted);
    const std::vector<std::string> uppers = split(*converted);
    auto upper = uppers.begin();
    for (address_part &part : parts) {
        std::optional<std::u16string> long_name = to_utf16(part.name);
        if (!long_name || upper == uppers.end()) {
            trace_log("Recoding error!");
            return std::nullopt;
        }
        part.upper = *upper++;
        part.long_name = *std::move(long_name);
    }
    return parts;
}

void cp866_toupper(std::string &text)
{
    for (char &symbol : text) {
        const auto byte = static_cast<std::uint8_t>(symbol);
        if ((byte >= 'a' && byte <= 'z') || (byte >= 0xA0 && byte <= 0xAF))
            symbol = static_cast<char>(byte - 0x20);
        else if (byte >= 0xE0 && byte <= 0xEF)
            symbol = static_cast<char>(byte - 0x50);
        else if (byte == 0xF1)
            symbol = static_cast<char>(0xF0);
    }
}

void cp866_tolower(std::string &text)
{
    for (char &symbol : text) {
        const auto byte = static_cast<std::uint8_t>(symbol);
        if ((byte >= 'A' && byte <= 'Z') || (byte >= 0x80 && byte <= 0x8F))
            symbol = static_cast<char>(byte + 0x20);
        else if (byte >= 0x90 && byte <= 0x9F)
            symbol = static_cast<char>(byte + 0x50);
        else if (byte == 0xF0)
            symbol = static_cast<char>(0xF1);
    }
}

std::string sfn_to_string(const fat_entry &entry)
{
    const byte_span bytes(entry);
    const std::string extension = remove_spaces(bytes.subspan(8, 3));
    std::string name = remove_spaces(bytes.first(8));
    return extension.empty() ? name : name + '.' + extension;
}

bool is_unused(const fat_entry &entry)
{
    return entry[0] == 0x00 || entry[0] == 0xE5 || entry[0] == 0x05;
}

bool is_long_name_piece(const fat_entry &entry)
{
    // 0x05 is an ordinary sequence number here.
    return entry[11] == long_name_attribute && entry[0] != 0x00 && entry[0] != 0xE5;
}

std::optional<std::u16string> readLFN(fat_directory &directory, fat_entry &entry)
{
    name_in_reverse name;
    std::size_t count = 0;
    while (is_long_name_piece(entry)) {
        // A longer run cannot be a name, and is only read to its end.
        if (++count <= most_pieces)
            prepend_piece(name, entry);
        if (read_next_file_entry(directory, entry) != fat_read::entry) {
            trace_log("End of cluster while LFN reading!");
            entry = {};
            return std::nullopt;
        }
    }
    if (count > most_pieces || name.start == name.units.size()) {
        trace_log("LFN read error(assembly_name)!");
        return std::nullopt;
    }
    if (is_unused(entry))
        return std::nullopt;
    trace_log("LFN end address:%" PRIx64, directory.position);
    return std::u16string(name.units.begin() + static_cast<std::ptrdiff_t>(name.start), name.units.end());
}

std::optional<std::string> long_name_to_utf8(const std::u16string &name)
{
    std::string bytes;
    for (const char16_t unit : name) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return pvl_iconv(bytes, "utf-16le", "utf-8");
}
