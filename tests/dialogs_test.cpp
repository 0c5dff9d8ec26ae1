// The dialogs: what they show of hostile texts, what they return, and that they stay on the screen.
#include "dialogs.h"

#include "gtk_support.h"

#include <gtest/gtest.h>

namespace {

TEST(dialogs, offer_their_buttons_in_order_and_take_escape)
{
    NEED_DISPLAY();
    answered_dialogs user({GTK_RESPONSE_OK});
    dialog_ok(nullptr, "Warning", "%s", "board");
    EXPECT_EQ(dialog_yes_no(nullptr, "Confirm", "%d of %d", 1, 2), -4);
    EXPECT_EQ(dialog_yes_no_cancel(nullptr, "Confirm", "?"), -4);
    EXPECT_EQ(dialog_yes_no_list(nullptr, "Confirm", "?", "%s", "list"), -4);
    EXPECT_EQ(user.text(), "Warning: board\nConfirm: 1 of 2\nConfirm: ?\nConfirm: ?\nlist\n");
    std::string buttons;
    for (const seen_dialog &dialog : user.seen)
        for (const auto &[x, name] : dialog.buttons)
            buttons += name + " ";
    EXPECT_EQ(buttons, "gtk-ok gtk-yes gtk-no gtk-yes gtk-no gtk-cancel gtk-yes gtk-no ");
}

TEST(dialogs, show_hostile_and_endless_texts_without_harm)
{
    NEED_DISPLAY();
    answered_dialogs user({GTK_RESPONSE_YES, GTK_RESPONSE_YES, GTK_RESPONSE_NO});
    const std::string wide(5000, 'w');
    EXPECT_EQ(dialog_yes_no(nullptr, "T", "%s", ("100%s {\\b} <b>\n\xff\xfe " + wide).c_str()), -8);
    // The question is not a format, and neither text is markup.
    EXPECT_EQ(dialog_yes_no_list(nullptr, "T", "50%n & <i>\xff", "%s", "%s%n\xc0{x}"), -8);
    std::string list;
    for (int i = 0; i < 10000; ++i)
        list += "C:/usr/share/file-" + std::to_string(i) + "\n";
    EXPECT_EQ(dialog_yes_no_list(nullptr, "Confirm", "Delete?", "%s", list.c_str()), -9);
    EXPECT_EQ(user.text(), "T: 100%s {\\b} <b>\n\uFFFD\uFFFD " + wide +
                               "\n"
                               "T: 50%n & <i>\uFFFD\n%s%n\uFFFD{x}\nConfirm: Delete?\n" +
                               list + "\n");
    EXPECT_LE(user.seen.at(0).width, gdk_screen_width());
    EXPECT_LE(user.seen.at(2).height, 600);
}

} // namespace
