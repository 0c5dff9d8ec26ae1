// Columns that are wide enough for texts of any length.
#pragma once

#include "gtk_owned.h"

#include <optional>
#include <string>
#include <vector>

// The room that the widest of many texts needs, found without laying out every one of them.
class widest_text {
public:
    // The texts are shown in the widget's font.
    explicit widest_text(GtkWidget *widget);

    // Valid UTF-8 on one line.
    void add(const std::string &text);

    // Of the widest text so far, in pixels; 0 without any.
    int width() const { return widest_; }

private:
    std::optional<int> expected_width(const std::string &text);
    int advance(gunichar character, gunichar next);
    int measure(const char *text, int length);

    owned_object<PangoLayout> layout_;
    std::vector<int> advances_;
    unsigned measured_ = 0;
    int widest_ = 0;
};
