// What GTK can show of a text that is only bytes.
#pragma once

#include <string>
#include <string_view>

// Valid UTF-8 on one line: bytes that are none become U+FFFD, control characters their visible pictures
// (U+2400 onward). A text without either comes back unchanged. For showing only; never for opening or writing
// a file.
[[nodiscard]] std::string display_text(std::string_view bytes);
