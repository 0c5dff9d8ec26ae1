#include "common/fat_name.h"

#include "common/iconvert.h"
#include "trace_log.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

namespace {

constexpr std::uint8_t long_name_attribute = 0x0F;
// 255 characters need 20 entries of 13.
constexpr std::size_t most_pieces = 20;
constexpr std::size_t piece_length = 13;
constexpr std::uint8_t first_piece_flag = 0x40;
constexpr std::uint8_t lower_case_name = 0x08, lower_case_extension = 0x10;

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

// Long-name entries that follow each other, the last part of the name first.
class long_name_run {
public:
    // A piece out of order ends the run; one that is marked as the first begins another.
    void add(const fat_entry &piece);
    [[nodiscard]] bool belongs_to(const fat_entry &entry) const;
    [[nodiscard]] std::u16string name() const;

private:
    std::array<char16_t, most_pieces * piece_length> units_;
    std::size_t pieces_ = 0; // 0: no run
    std::size_t left_ = 0;   // to come; the next one's number
    std::uint8_t checksum_ = 0;
};

void long_name_run::add(const fat_entry &piece)
{
    static constexpr std::array<std::uint8_t, piece_length> offsets = {1,  3,  5,  7,  9,  14, 16,
                                                                       18, 20, 22, 24, 28, 30};
    const std::uint8_t sequence = piece[0];
    if (sequence & first_piece_flag) {
        pieces_ = left_ = sequence ^ first_piece_flag;
        checksum_ = piece[13];
    }
    if ((sequence & ~first_piece_flag) != static_cast<int>(left_) || left_ < 1 || left_ > most_pieces ||
        piece[13] != checksum_) {
        pieces_ = left_ = 0;
        return;
    }
    --left_;
    for (std::size_t i = 0; i < piece_length; ++i)
        units_[left_ * piece_length + i] = le16(piece, offsets[i]);
}

bool long_name_run::belongs_to(const fat_entry &entry) const
{
    std::uint8_t checksum = 0;
    for (std::size_t i = 0; i < 11; ++i)
        checksum = static_cast<std::uint8_t>((checksum << 7 | checksum >> 1) + entry[i]);
    return pieces_ > 0 && left_ == 0 && checksum_ == checksum;
}

std::u16string long_name_run::name() const
{
    const auto end = units_.begin() + static_cast<std::ptrdiff_t>(pieces_ * piece_length);
    return {units_.begin(), std::find(units_.begin(), end, u'\0')};
}

// A field of a short name up to its first zero byte; blanks are characters.
std::string field_text(byte_span field)
{
    return {field.begin(), std::find(field.begin(), field.end(), 0)};
}

void remove_spaces(std::string &text)
{
    std::erase(text, ' ');
}

// The kernel's lower case has three letters more than the firmware's.
void lower_all_letters(std::string &text)
{
    cp866_tolower(text);
    for (char &symbol : text) {
        const auto byte = static_cast<std::uint8_t>(symbol);
        if (byte == 0xF2 || byte == 0xF4 || byte == 0xF6)
            symbol = static_cast<char>(byte + 1);
    }
}

// A field as the kernel shows it.
std::string shown_field(byte_span field, bool lower_case)
{
    std::string text = field_text(field);
    text.erase(text.find_last_not_of(' ') + 1);
    if (lower_case)
        lower_all_letters(text);
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
    const std::vector<std::string> names = split(*converted);
    if (names.empty()) {
        trace_log("filename is incorrect!");
        return std::nullopt;
    }
    std::list<address_part> parts;
    for (const std::string &name : names) {
        parts.push_back({.name = name, .shown = name, .upper = {}, .long_name = {}});
        remove_spaces(parts.back().name);
    }
    if (direction == fat_direction::short_to_long)
        return parts;

    const std::vector<std::string> unconverted = split(path);
    auto name = unconverted.begin();
    for (address_part &part : parts) {
        std::optional<std::u16string> long_name = to_utf16(*name);
        if (!long_name) {
            trace_log("Recoding error!");
            return std::nullopt;
        }
        part.upper = std::exchange(part.name, *name++);
        cp866_toupper(part.upper);
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

std::string sfn_to_string(byte_span short_name)
{
    std::string text = field_text(short_name.first(8));
    if (short_name[8] != ' ')
        text.append(1, '.').append(field_text(short_name.subspan(8, 3)));
    remove_spaces(text);
    return text;
}

std::string shown_short_name(byte_span short_name, std::uint8_t case_byte)
{
    const std::string extension = shown_field(short_name.subspan(8, 3), case_byte & lower_case_extension);
    std::string name = shown_field(short_name.first(8), case_byte & lower_case_name);
    return extension.empty() ? name : name + '.' + extension;
}

void fold_short_name(std::string &text)
{
    lower_all_letters(text);
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
    long_name_run run;
    while (is_long_name_piece(entry)) {
        run.add(entry);
        if (read_next_file_entry(directory, entry) != fat_read::entry) {
            trace_log("End of cluster while LFN reading!");
            entry = {};
            return std::nullopt;
        }
    }
    if (is_unused(entry) || !run.belongs_to(entry))
        return std::nullopt;
    std::u16string name = run.name();
    if (name.empty()) {
        trace_log("LFN read error(assembly_name)!");
        return std::nullopt;
    }
    trace_log("LFN end address:%" PRIx64, directory.position);
    return name;
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
