// What GTK can show of a text that is only bytes.
#pragma once

#include "common/visible_text.h"

// Valid UTF-8 on one line, in which nothing hides: bytes that are none become U+FFFD, control characters
// their visible pictures (U+2400 onward), and what is invisible or would reorder the text reads like
// <U+202E>; see common/visible_text.h. Any other text comes back unchanged. For showing only; never for
// opening or writing a file.
[[nodiscard]] inline std::string display_text(std::string_view bytes)
{
    return visible_text(bytes, text_form::screen);
}
