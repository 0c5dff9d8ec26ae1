#include "display_text.h"

#include "common/owned.h"

#include <algorithm>

namespace {

bool is_control(char byte)
{
    const auto code = static_cast<unsigned char>(byte);
    return code < 0x20 || code == 0x7F;
}

// The picture of a control character: U+2400 onward (e.g. U+240A for a newline), U+2421 for DEL.
std::string picture(char control)
{
    const int code = control == 0x7F ? 0x21 : control;
    return {'\xE2', '\x90', static_cast<char>(0x80 + code)};
}

} // namespace

std::string display_text(std::string_view bytes)
{
    const owned_gchar valid(g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size())));
    std::string text = valid.get();
    if (std::none_of(text.begin(), text.end(), is_control))
        return text;
    std::string shown;
    for (const char byte : text) {
        if (is_control(byte))
            shown += picture(byte);
        else
            shown += byte;
    }
    return shown;
}
