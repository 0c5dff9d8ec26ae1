// The dialogs: what they show of hostile texts, and that they stay on the screen.
#include "dialogs.h"

#include "gtk_support.h"

#include <gtest/gtest.h>

TEST(dialogs, show_hostile_and_endless_texts_without_harm)
{
    answered_dialogs user({GTK_RESPONSE_YES, GTK_RESPONSE_NO});
    const std::string wide(5000, 'w');
    EXPECT_EQ(dialog_yes_no(nullptr, "T", "%s", ("100%s {\\b} <b>\n\xff\xfe " + wide).c_str()), -8);
    user.height = 0;
    // The question is not a format, and neither text is markup.
    std::string list = wide + "%s%n{x}\n";
    for (int i = 0; i < 10000; ++i)
        list += "C:/usr/share/file-" + std::to_string(i) + "\n";
    EXPECT_EQ(dialog_yes_no_list(nullptr, "T", "50%n & <i>\xff", "%s", (list + "\xc0").c_str()), -9);
    EXPECT_EQ(user.text,
              "T: 100%s {\\b} <b>\n\uFFFD\uFFFD " + wide + "\nT: 50%n & <i>\uFFFD\n" + list + "\uFFFD\n");
    EXPECT_LE(user.width, gdk_screen_width());
    EXPECT_LE(user.height, 600);
}
