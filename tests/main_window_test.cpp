// The main window: the exit question, and that nothing is cut off.
#include "main_window.h"

#include "app.h"
#include "gtk_support.h"
#include "support.h"

#include <fstream>
#include <glade/glade.h>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

namespace {

std::string description()
{
    std::stringstream text;
    text << std::ifstream(DATA_DIR "/gtk-tarnel.glade").rdbuf();
    return text.str();
}

// A machine whose window description is the given text; it has no disks.
struct installed {
    explicit installed(const std::string &glade) : host(root.path())
    {
        root.write("usr/share/gtk-tarnel/gtk-tarnel.glade", glade);
        root.write("proc/mounts", "");
    }
    scratch_directory root;
    replaced_host host;
};

class main_window : public testing::Test {
protected:
    void SetUp() override
    {
        NEED_DISPLAY();
        app.pelva_db_path = templates.path().string();
        app.short_path = "/pelva";
        app.separator = '/';
        disk &d = app.disks.emplace_back();
        part &p = d.parts.emplace_back();
        d.name = p.device = "sda";
        p.index = 1;
        p.fs_type = "ext4";
        app.mounts.push_back({.disk = &d, .partition = &p, .mountpoint = "/", .letter = 'C'});
        app.pelva_db_mt = &app.mounts.back();
        ASSERT_EQ(app_init_gui(&app), 0);
    }
    void TearDown() override
    {
        files_changed = sectors_changed = 0;
        if (!app.window)
            return;
        // A window that is destroyed ends a main loop; here there is none.
        g_signal_handlers_disconnect_matched(app.window, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr,
                                             reinterpret_cast<gpointer>(on_close), nullptr);
        gtk_widget_destroy(app.window);
    }

    bool saved(const char *name) const { return std::filesystem::exists(templates.path() / name); }

    scratch_directory templates;
    installed machine{description()};
    struct app app;
};

TEST_F(main_window, asks_before_it_closes_over_unsaved_marks)
{
    const struct {
        int files, sectors; // flags
        int response;       // of the user; 0 when nothing may be asked
        bool keeps, saves;
        int flags_after;
    } cases[] = {
        {0, 0, 0, false, false, 0},
        {1, 0, GTK_RESPONSE_CANCEL, true, false, 1},
        {0, 1, GTK_RESPONSE_DELETE_EVENT, true, false, 1},
        {1, 1, GTK_RESPONSE_NO, false, false, 0},
        {0, 1, GTK_RESPONSE_YES, false, true, 0},
    };
    for (const auto &c : cases) {
        files_changed = c.files;
        sectors_changed = c.sectors;
        answered_dialogs user({c.response});
        EXPECT_EQ(delete_event(app.window, nullptr, &app), c.keeps);
        EXPECT_EQ(user.seen.size(), c.response ? 1U : 0U);
        EXPECT_EQ(files_changed | sectors_changed, c.flags_after);
        EXPECT_EQ(saved("bootfile.nam"), c.saves);
        EXPECT_EQ(saved("bootsect.chk"), c.saves);
    }
}

TEST_F(main_window, stays_when_the_marks_cannot_be_saved)
{
    app.pelva_db_path += "/gone";
    files_changed = 1;
    answered_dialogs user({GTK_RESPONSE_YES, GTK_RESPONSE_OK, GTK_RESPONSE_OK});
    EXPECT_TRUE(delete_event(app.window, nullptr, &app));
    EXPECT_EQ(files_changed, 1);
}

TEST(main_window_layout, fits_a_small_screen_with_texts_half_as_long_again)
{
    NEED_DISPLAY();
    std::string longer;
    const std::string text = description();
    const std::regex translatable("translatable=\"yes\">([^<]*)<");
    std::size_t done = 0;
    for (std::sregex_iterator at(text.begin(), text.end(), translatable), end; at != end; ++at) {
        const std::string message = (*at)[1];
        const auto stop = static_cast<std::size_t>(at->position(1) + at->length(1));
        longer += text.substr(done, stop - done) + std::string(message.size() / 2, 'w');
        done = stop;
    }
    longer += text.substr(done);
    const installed machine(longer);
    GladeXML *xml = glade_xml_new((machine.root.path() / "usr/share/gtk-tarnel/gtk-tarnel.glade").c_str(),
                                  nullptr, nullptr);
    ASSERT_NE(xml, nullptr);
    for (const char *name : {"window", "report", "progress_window"}) {
        GtkWidget *window = glade_xml_get_widget(xml, name);
        gtk_widget_show(window);
        settle();
        GtkRequisition needed;
        gtk_widget_size_request(window, &needed);
        EXPECT_LE(needed.width, 1000) << name; // the frame of a window manager takes some of 1024x768
        EXPECT_LE(needed.height, 720) << name;
        gtk_widget_destroy(window);
    }
    g_object_unref(xml);
}

} // namespace
