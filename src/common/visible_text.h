// Names as people read them: nothing in them is invisible or moves the rest about.
#pragma once

#include <string>
#include <string_view>

enum class text_form {
    screen, // for the windows: control characters become their pictures, bytes that are no text U+FFFD
    listing // for the output of a command: control characters read <U+000A>, bytes that are no text <0xFF>
};

// One line of UTF-8. Characters that a reader would not see for what they are read like <U+202E> in both
// forms: format characters such as bidirectional overrides, joiners and soft hyphens, separators of lines and
// paragraphs, variation selectors, fillers. Where a name itself says "<U+" or "<0x", its '<' is written as
// <U+003C>, so that neither can be taken for the other; in a listing different names stay different.
[[nodiscard]] std::string visible_text(std::string_view bytes, text_form form);
