// The main window: the exit question, and what it is loaded from.
#include "main_window.h"

#include "notice_bar.h"
#include "tree_support.h"

#include <gtest/gtest.h>
#include <regex>
#include <set>

namespace {

namespace fs = std::filesystem;

TEST(main_window, asks_before_it_closes_over_unsaved_marks)
{
    gtk_init(nullptr, nullptr);
    browsed_partition partition;
    struct app &app = partition.app;
    partition.host.write(window_description_file + 1, content_of(description_file()));
    prepare_gui(&app);
    app.disk_notes = {{"sdb", disk_note_reason::unreadable}};
    ASSERT_EQ(app_init_gui(&app), 0);
    const fs::path directory = app.pelva_db_path;
    fs::create_directory(directory);
    const struct {          // NOLINT: in the order of reading
        int files, sectors; // flags
        int response;       // of the user; 0 when nothing may be asked
        bool stays;
        bool kept;         // missing entries, by the user's choice
        std::string saves; // the files that are there afterwards
    } cases[] = {
        {0, 0, 0, false, false, ""},
        {1, 0, GTK_RESPONSE_CANCEL, true, false, ""},
        {0, 1, GTK_RESPONSE_DELETE_EVENT, true, false, ""},
        {1, 1, GTK_RESPONSE_NO, false, false, ""},
        {1, 0, GTK_RESPONSE_YES, true, false, ""}, // nothing can be written
        {0, 1, GTK_RESPONSE_YES, true, false, ""},
        {0, 1, GTK_RESPONSE_YES, false, true, "bootsect"},
        {1, 0, GTK_RESPONSE_YES, false, true, "bootfile"},
        {1, 0, GTK_RESPONSE_YES, false, false, "bootfilebootsect"},
    };
    GtkNotebook *pages = GTK_NOTEBOOK(described_widget(app.xml, "pages"));
    for (const list_kind page : {list_kind::files, list_kind::sectors}) { // both lead to the warning
        gtk_notebook_set_current_page(pages, 0);
        clear_notices(&app, page);
        gtk_info_bar_response(
            GTK_INFO_BAR(notice_bar(page == list_kind::files ? app.filebrowser : app.diskbrowser)), 1);
        EXPECT_EQ(gtk_notebook_get_current_page(pages), 2);
        set_notice(&app, page, notice_subject::disks, "");
    }
    for (const auto &c : cases) {
        const bool fails = c.stays && c.response == GTK_RESPONSE_YES;
        app.pelva_db_path = directory.string() + (fails ? "/gone" : "");
        files_changed = c.files;
        sectors_changed = c.sectors;
        app.file_template.kept = app.sector_template.kept = c.kept;
        gtk_notebook_set_current_page(pages, 2);
        answered_dialogs user({c.response});
        EXPECT_EQ(delete_event(app.window, nullptr, &app), c.stays);
        EXPECT_EQ(user.count, c.response ? 1 : 0);
        EXPECT_EQ(files_changed | sectors_changed, c.stays);
        std::string saved;
        for (const std::string name : {"bootfile", "bootsect"})
            saved += fs::remove(directory / (name + ".nam")) ? name : "";
        EXPECT_EQ(saved, c.saves);
        // Where nothing could be written the page says why.
        EXPECT_EQ(gtk_notebook_get_current_page(pages), fails ? c.sectors : 2);
        EXPECT_EQ(notice_bar(c.sectors ? app.diskbrowser : app.filebrowser) != nullptr, fails);
    }
    // A window that is destroyed ends the main loop.
    g_idle_add([](gpointer window) { return gtk_widget_destroy(GTK_WIDGET(window)), FALSE; }, app.window);
    gtk_main();
    app.window = nullptr;
    release_window_description(app.xml);
}

TEST(main_window, is_loaded_from_a_whole_description_and_has_a_handler_for_each_of_its_signals)
{
    gtk_init(nullptr, nullptr);
    const scratch_directory scratch;
    const std::string whole = content_of(description_file());
    for (const std::string &damaged : {std::string(), whole.substr(whole.size() / 2), whole.substr(0, 9999)})
        EXPECT_FALSE(load_window_description(scratch.write("damaged", damaged)));
    std::set<std::string> wanted, offered;
    const std::regex attribute("handler=\"([^\"]*)\"");
    for (std::sregex_iterator at(whole.begin(), whole.end(), attribute), end; at != end; ++at)
        wanted.insert((*at)[1]);
    for (const window_handler &handler : main_window_handlers())
        offered.insert(handler.name);
    EXPECT_EQ(offered, wanted);
}

} // namespace
