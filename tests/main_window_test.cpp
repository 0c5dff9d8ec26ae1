// The main window: the exit question, and that nothing is cut off.
#include "main_window.h"

#include "app.h"
#include "gtk_support.h"
#include "notice_bar.h"
#include "support.h"

#include <gtest/gtest.h>
#include <regex>
#include <set>

namespace {

TEST(main_window, asks_before_it_closes_over_unsaved_marks)
{
    gtk_init(nullptr, nullptr);
    const scratch_directory machine, templates;
    const replaced_host host(machine.path());
    machine.write(window_description_file + 1, content_of(description_file()));
    machine.write("proc/mounts", "");
    struct app app;
    app.short_path = "/pelva";
    app.separator = '/';
    disk &d = app.disks.emplace_back();
    part &p = d.parts.emplace_back();
    d.name = p.device = "sda";
    p.fs_type = "ext4";
    app.mounts.push_back({.disk = &d, .partition = &p, .mountpoint = "/", .letter = 'C'});
    app.pelva_db_mt = &app.mounts.back();
    prepare_gui(&app);
    ASSERT_EQ(app_init_gui(&app), 0);
    const struct {          // NOLINT: in the order of reading
        int files, sectors; // flags
        int response;       // of the user; 0 when nothing may be asked
        bool keeps;
        std::string saves; // the files that are there afterwards
        int flags_after;
        const char *directory = "";
        bool kept = false; // missing entries, by the user's choice
    } cases[] = {
        {0, 0, 0, false, "", 0},
        {1, 0, GTK_RESPONSE_CANCEL, true, "", 1},
        {0, 1, GTK_RESPONSE_DELETE_EVENT, true, "", 1},
        {1, 1, GTK_RESPONSE_NO, false, "", 0},
        {1, 0, GTK_RESPONSE_YES, true, "", 1, "/gone"},
        {0, 1, GTK_RESPONSE_YES, true, "", 1, "/gone"},
        {0, 1, GTK_RESPONSE_YES, false, "bootsect", 0, "", true},
        {1, 0, GTK_RESPONSE_YES, false, "bootfile", 0, "", true},
        {1, 0, GTK_RESPONSE_YES, false, "bootfilebootsect", 0},
    };
    GtkNotebook *pages = GTK_NOTEBOOK(described_widget(app.xml, "pages"));
    for (const auto &c : cases) {
        app.pelva_db_path = templates.path().string() + c.directory;
        files_changed = c.files;
        sectors_changed = c.sectors;
        app.file_template.kept = app.sector_template.kept = c.kept;
        gtk_notebook_set_current_page(pages, 2);
        answered_dialogs user({c.response});
        EXPECT_EQ(delete_event(app.window, nullptr, &app), c.keeps);
        EXPECT_EQ(user.count, c.response ? 1 : 0U);
        EXPECT_EQ(files_changed | sectors_changed, c.flags_after);
        std::string saved;
        for (const std::string name : {"bootfile", "bootsect"})
            saved += std::filesystem::remove(templates.path() / (name + ".nam")) ? name : "";
        EXPECT_EQ(saved, c.saves);
        // Where nothing could be written the page says why.
        const bool fails = *c.directory;
        EXPECT_EQ(gtk_notebook_get_current_page(pages), fails ? c.sectors : 2);
        EXPECT_EQ(app.sector_template.notices[2].text,
                  fails ? "The template was not saved: cannot write in " + app.pelva_db_path +
                              ": No such file or directory."
                        : "");
        EXPECT_EQ(notice_bar(c.sectors ? app.diskbrowser : app.filebrowser) != nullptr, fails);
    }
    // A window that is destroyed ends the main loop.
    g_idle_add([](gpointer window) { return gtk_widget_destroy(GTK_WIDGET(window)), FALSE; }, app.window);
    gtk_main();
    release_window_description(app.xml);
}

TEST(main_window, has_a_handler_for_every_signal_of_the_description_and_no_other)
{
    const std::string description = content_of(description_file());
    std::set<std::string> wanted, offered;
    const std::regex attribute("handler=\"([^\"]*)\"");
    for (std::sregex_iterator at(description.begin(), description.end(), attribute), end; at != end; ++at)
        wanted.insert((*at)[1]);
    for (const window_handler &handler : main_window_handlers())
        offered.insert(handler.name);
    EXPECT_EQ(offered, wanted);
}

TEST(main_window, loads_whole_files_and_fits_a_small_screen_with_texts_half_as_long_again)
{
    const std::string description = content_of(description_file());
    std::string longer;
    const std::regex translatable("translatable=\"yes\">([^<]*)<");
    std::size_t done = 0;
    for (std::sregex_iterator at(description.begin(), description.end(), translatable), end; at != end;
         ++at) {
        const auto stop = static_cast<std::size_t>(at->position(1) + at->length(1));
        longer += description.substr(done, stop - done) + std::string((*at)[1].str().size() / 2, 'w');
        done = stop;
    }
    longer += description.substr(done);
    gtk_init(nullptr, nullptr);
    const scratch_directory scratch;
    EXPECT_FALSE(load_window_description(scratch.path() / "missing"));
    EXPECT_FALSE(load_window_description(scratch.write("damaged", longer.substr(longer.size() / 2))));
    EXPECT_FALSE(load_window_description(scratch.write("cut", longer.substr(0, longer.size() / 2))));
    window_description *xml = load_window_description(scratch.write("longer", longer));
    ASSERT_NE(xml, nullptr);
    for (const char *name : {"window", "report", "progress_window"}) {
        GtkWidget *window = described_widget(xml, name);
        gtk_widget_show(window);
        settle();
        GtkRequisition needed;
        gtk_widget_size_request(window, &needed);
        EXPECT_LE(needed.width, 1000) << name; // the frame of a window manager takes some of 1024x768
        EXPECT_LE(needed.height, 720) << name;
        gtk_widget_destroy(window);
    }
    release_window_description(xml);
}

} // namespace
