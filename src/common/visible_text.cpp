#include "common/visible_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <glib.h>

namespace {

struct range {
    gunichar first, last;
};

// What fonts show nothing for, besides the categories that is_hidden knows: the default-ignorable code points
// of DerivedCoreProperties.txt, of the Unicode standard.
constexpr range ignorable[] = {
    {0x034F, 0x034F},   // combining grapheme joiner
    {0x115F, 0x1160},   // Hangul fillers
    {0x17B4, 0x17B5},   // Khmer inherent vowels
    {0x180B, 0x180F},   // Mongolian variation selectors and vowel separator
    {0x2065, 0x2065},   // reserved
    {0x3164, 0x3164},   // Hangul filler
    {0xFE00, 0xFE0F},   // variation selectors
    {0xFFA0, 0xFFA0},   // half-width Hangul filler
    {0xFFF0, 0xFFF8},   // reserved
    {0xE0000, 0xE0FFF}, // tags, variation selectors, reserved
};

// The pictures of control characters; a name that holds one itself must not look like a name with the
// character.
constexpr gunichar first_picture = 0x2400, picture_of_del = 0x2421;

bool is_hidden(gunichar character)
{
    switch (g_unichar_type(character)) {
    case G_UNICODE_CONTROL:
    case G_UNICODE_FORMAT:
    case G_UNICODE_LINE_SEPARATOR:
    case G_UNICODE_PARAGRAPH_SEPARATOR:
        return true;
    default:
        return std::ranges::any_of(
            ignorable, [character](range r) { return character >= r.first && character <= r.last; });
    }
}

void append_form(std::string &text, const char *format, unsigned value)
{
    std::array<char, 16> form{};
    std::snprintf(form.data(), form.size(), format, value);
    text += form.data();
}

void append_character(std::string &text, gunichar character)
{
    std::array<char, 6> bytes{};
    text.append(bytes.data(), static_cast<std::size_t>(g_unichar_to_utf8(character, bytes.data())));
}

// The first character, or nothing where no character begins.
gunichar first_character(std::string_view bytes)
{
    constexpr std::size_t longest = 4;
    return g_utf8_get_char_validated(bytes.data(), static_cast<gssize>(std::min(bytes.size(), longest)));
}

bool is_plain(char byte)
{
    return byte >= 0x20 && byte < 0x7F && byte != '<';
}

// Adds the first character of `bytes`, which is no plain one, and returns how many bytes it has.
std::size_t append_first(std::string &text, std::string_view bytes, text_form form)
{
    const auto byte = static_cast<unsigned char>(bytes.front());
    const gunichar character = byte < 0x80 ? byte : first_character(bytes);
    if (character > 0x10FFFF) {
        if (form == text_form::screen)
            append_character(text, 0xFFFD);
        else
            append_form(text, "<0x%02X>", byte);
        return 1;
    }
    if (form == text_form::screen && byte < 0x20)
        append_character(text, first_picture + byte);
    else if (form == text_form::screen && byte == 0x7F)
        append_character(text, picture_of_del);
    else if (is_hidden(character) || (character >= first_picture && character <= picture_of_del) ||
             bytes.starts_with("<U+") || bytes.starts_with("<0x"))
        append_form(text, "<U+%04X>", character);
    else
        append_character(text, character);
    return byte < 0x80 ? 1 : static_cast<std::size_t>(g_unichar_to_utf8(character, nullptr));
}

} // namespace

std::string visible_text(std::string_view bytes, text_form form)
{
    std::string text;
    while (!bytes.empty()) {
        const auto plain =
            static_cast<std::size_t>(std::ranges::find_if_not(bytes, is_plain) - bytes.begin());
        text += bytes.substr(0, plain);
        bytes.remove_prefix(plain);
        if (!bytes.empty())
            bytes.remove_prefix(append_first(text, bytes, form));
    }
    return text;
}
