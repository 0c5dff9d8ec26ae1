// The dialogs: what they show of hostile texts, and that they stay on the screen.
#include "dialogs.h"

#include "gtk_support.h"

#include <ctime>
#include <gtest/gtest.h>

namespace {

TEST(dialogs, show_the_longest_list_at_once)
{
    const auto processor_time = [](int lines) {
        std::string list;
        for (int i = 0; i < lines; ++i)
            list += "C:/usr/share/file-" + std::to_string(i) + "\n";
        answered_dialogs user({GTK_RESPONSE_NO});
        const std::clock_t begin = std::clock();
        EXPECT_EQ(dialog_yes_no_list(nullptr, "Confirm", "Delete?", "%s", list.c_str()), -9);
        EXPECT_EQ(user.text, "Confirm: Delete?\n" + list + "\n");
        EXPECT_LE(user.height, 600);
        return std::clock() - begin;
    };
    processor_time(1); // the first dialog of all takes longer
    EXPECT_LT(processor_time(10000), 15 * processor_time(100));
}

TEST(dialogs, show_hostile_and_endless_texts_without_harm)
{
    answered_dialogs user({GTK_RESPONSE_YES, GTK_RESPONSE_YES});
    const std::string wide(5000, 'w');
    EXPECT_EQ(dialog_yes_no(nullptr, "T", "%s", ("100%s {\\b} <b>\n\xff\xfe " + wide).c_str()), -8);
    // The question is not a format, and neither text is markup.
    EXPECT_EQ(dialog_yes_no_list(nullptr, "T", "50%n & <i>\xff", "%s", "%s%n\xc0{x}"), -8);
    EXPECT_EQ(user.text,
              "T: 100%s {\\b} <b>\n\uFFFD\uFFFD " + wide + "\nT: 50%n & <i>\uFFFD\n%s%n\uFFFD{x}\n");
    EXPECT_LE(user.width, gdk_screen_width());
}

} // namespace
