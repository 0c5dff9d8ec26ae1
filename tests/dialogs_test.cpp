// The dialogs: what they show of hostile texts, what they return, and that they stay on the screen.
#include "dialogs.h"

#include "gtk_support.h"

#include <gtest/gtest.h>

namespace {

TEST(dialogs, return_the_response_of_every_button_and_of_escape)
{
    NEED_DISPLAY();
    answered_dialogs user({GTK_RESPONSE_OK, GTK_RESPONSE_YES, GTK_RESPONSE_NO, GTK_RESPONSE_DELETE_EVENT,
                           GTK_RESPONSE_CANCEL, GTK_RESPONSE_DELETE_EVENT, GTK_RESPONSE_YES,
                           GTK_RESPONSE_DELETE_EVENT});
    dialog_ok(nullptr, "Warning", "%s", "board");
    EXPECT_EQ(dialog_yes_no(nullptr, "Confirm", "%d of %d", 1, 2), -8);
    EXPECT_EQ(dialog_yes_no(nullptr, "Confirm", "?"), -9);
    EXPECT_EQ(dialog_yes_no(nullptr, "Confirm", "?"), -4);
    EXPECT_EQ(dialog_yes_no_cancel(nullptr, "Confirm", "?"), -6);
    EXPECT_EQ(dialog_yes_no_cancel(nullptr, "Confirm", "?"), -4);
    EXPECT_EQ(dialog_yes_no_list(nullptr, "Confirm", "?", "%s", "list"), -8);
    EXPECT_EQ(dialog_yes_no_list(nullptr, "Confirm", "?", "%s", "list"), -4);

    ASSERT_EQ(user.seen.size(), 8U);
    EXPECT_EQ(user.seen[0].title, "Warning");
    EXPECT_EQ(user.seen[0].text, "board\n");
    EXPECT_EQ(user.seen[1].text, "1 of 2\n");
    const auto buttons = [&](std::size_t which) {
        std::string names;
        for (const auto &[x, name] : user.seen[which].buttons)
            names += name + " ";
        return names;
    };
    EXPECT_EQ(buttons(0), "gtk-ok ");
    EXPECT_EQ(buttons(1), "gtk-yes gtk-no ");
    EXPECT_EQ(buttons(4), "gtk-yes gtk-no gtk-cancel ");
    EXPECT_EQ(buttons(6), "gtk-yes gtk-no ");
}

TEST(dialogs, show_hostile_texts_without_harm)
{
    NEED_DISPLAY();
    answered_dialogs user({GTK_RESPONSE_YES, GTK_RESPONSE_YES});
    const std::string wide(5000, 'w');
    EXPECT_EQ(dialog_yes_no(nullptr, "T", "%s", ("100%s {\\b} <b>\n\xff\xfe " + wide).c_str()), -8);
    // The question is not a format, and neither text is markup.
    EXPECT_EQ(dialog_yes_no_list(nullptr, "T", "50%n & <i>\xff", "%s", "%s%n\xc0{x}"), -8);
    ASSERT_EQ(user.seen.size(), 2U);
    EXPECT_EQ(user.seen[0].text, "100%s {\\b} <b>\n\uFFFD\uFFFD " + wide + "\n");
    EXPECT_LE(user.seen[0].width, gdk_screen_width());
    EXPECT_EQ(user.seen[1].text, "50%n & <i>\uFFFD\n%s%n\uFFFD{x}\n");
}

GtkWidget *find_scrolled(GtkWidget *widget)
{
    if (GTK_IS_SCROLLED_WINDOW(widget))
        return widget;
    GtkWidget *found = nullptr;
    if (GTK_IS_CONTAINER(widget)) {
        GList *children = gtk_container_get_children(GTK_CONTAINER(widget));
        for (GList *at = children; at && !found; at = at->next)
            found = find_scrolled(static_cast<GtkWidget *>(at->data));
        g_list_free(children);
    }
    return found;
}

TEST(dialogs, scroll_a_list_of_ten_thousand_lines)
{
    NEED_DISPLAY();
    std::string list;
    for (int i = 0; i < 10000; ++i)
        list += "C:/usr/share/file-" + std::to_string(i) + "\n";
    answered_dialogs user({GTK_RESPONSE_NO});
    double scrollable = 0;
    user.inspect = [&](GtkWidget *dialog) {
        GtkWidget *scrolled = find_scrolled(dialog);
        ASSERT_NE(scrolled, nullptr);
        GtkAdjustment *down = gtk_scrolled_window_get_vadjustment(GTK_SCROLLED_WINDOW(scrolled));
        scrollable = gtk_adjustment_get_upper(down) / gtk_adjustment_get_page_size(down);
    };
    EXPECT_EQ(dialog_yes_no_list(nullptr, "Confirm", "Delete?", "%s", list.c_str()), -9);
    ASSERT_EQ(user.seen.size(), 1U);
    EXPECT_EQ(user.seen[0].text, "Delete?\n" + list + "\n");
    EXPECT_LE(user.seen[0].height, 600);
    EXPECT_GT(scrollable, 300);
}

} // namespace
