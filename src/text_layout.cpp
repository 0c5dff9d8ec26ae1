#include "text_layout.h"

#include <algorithm>
#include <array>

namespace {

// Characters whose room depends on none but the one behind them (kerning, ligatures): ASCII and the Cyrillic
// letters. Their number among these, from 1; 0 for any other.
constexpr gunichar first_ascii = 0x20, last_ascii = 0x7E, first_cyrillic = 0x400, last_cyrillic = 0x45F;
constexpr std::size_t ascii_count = last_ascii - first_ascii + 1;
constexpr std::size_t known_count = ascii_count + last_cyrillic - first_cyrillic + 2;

std::size_t known_number(gunichar character)
{
    if (character >= first_ascii && character <= last_ascii)
        return character - first_ascii + 1;
    if (character >= first_cyrillic && character <= last_cyrillic)
        return ascii_count + character - first_cyrillic + 1;
    return 0;
}

constexpr int unknown_advance = -1;
// So many texts are measured before it pays to expect widths.
constexpr unsigned measured_outright = 20;

} // namespace

widest_text::widest_text(GtkWidget *widget) : layout_(gtk_widget_create_pango_layout(widget, nullptr)) {}

int widest_text::measure(const char *text, int length)
{
    int width = 0;
    pango_layout_set_text(layout_.get(), text, length);
    pango_layout_get_pixel_size(layout_.get(), &width, nullptr);
    return width;
}

// How far the next character is shifted to the right by this one; of the last one its width.
int widest_text::advance(gunichar character, gunichar next)
{
    if (advances_.empty())
        advances_.assign(known_count * known_count, unknown_advance);
    if (known_number(next) == 0)
        next = 0;
    int &known = advances_[known_number(character) * known_count + known_number(next)];
    if (known == unknown_advance) {
        std::array<char, 12> text{}; // two characters of up to six bytes
        const int first = g_unichar_to_utf8(character, text.data());
        const int second = next ? g_unichar_to_utf8(next, text.data() + first) : 0;
        known = measure(text.data(), first + second) - (next ? advance(next, 0) : 0);
        known = std::max(known, 0);
    }
    return known;
}

// Nothing for a text whose width cannot be told from pairs of its characters: scripts that shape their words,
// and characters that may come from another font.
std::optional<int> widest_text::expected_width(const std::string &text)
{
    int width = 0;
    gunichar character = g_utf8_get_char(text.c_str());
    for (const char *at = text.c_str(); *at;) {
        if (known_number(character) == 0)
            return std::nullopt;
        at = g_utf8_next_char(at);
        const gunichar next =
            static_cast<unsigned char>(*at) < 0x80 ? static_cast<unsigned char>(*at) : g_utf8_get_char(at);
        width += advance(character, next);
        character = next;
    }
    return width;
}

// Only a text that may be wider than the widest is laid out: in most directories a handful of 50,000.
void widest_text::add(const std::string &text)
{
    if (measured_ >= measured_outright) {
        const std::optional<int> expected = expected_width(text);
        if (expected && *expected <= widest_)
            return;
    }
    ++measured_;
    widest_ = std::max(widest_, measure(text.c_str(), static_cast<int>(text.size())));
}
