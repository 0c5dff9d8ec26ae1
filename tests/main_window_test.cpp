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
    browsed_partition partition("ntfs");
    struct app &app = partition.app;
    partition.files.write("a\\b", "");
    partition.host.write(window_description_file + 1, content_of(description_file()));
    prepare_gui(&app);
    app.disk_notes = {{"sdb", disk_note_reason::unreadable}};
    ASSERT_EQ(app_init_gui(&app), 0);
    const fs::path directory = app.pelva_db_path;
    fs::create_directory(directory);
    constexpr int yes = GTK_RESPONSE_YES, no = GTK_RESPONSE_NO, cancel = GTK_RESPONSE_CANCEL,
                  escape = GTK_RESPONSE_DELETE_EVENT, ok = GTK_RESPONSE_OK;
    const std::string drops =
                          "Confirm: Do you really want to overwrite existing template?\n\n"
                          "These entries of the saved template are not marked and will be gone:\ngone\n\n",
                      left_out =
                          "Warning: 1 marked file has no name that the board can read. It is not in the "
                          "template.\n" +
                          partition.files.path().string() + "/a\\b\n\n";
    const struct {            // NOLINT: in the order of reading
        int files, sectors;   // flags
        std::string unmarked; // the lists that hold an entry which the tree does not show
        std::vector<int> responses;
        bool stays;
        std::string saves;     // the files that are there afterwards
        std::string asks = {}; // behind the first question
    } cases[] = {
        {0, 0, "", {}, false, ""},
        {1, 0, "", {cancel}, true, ""},
        {0, 1, "", {escape}, true, ""},
        {1, 1, "", {no}, false, ""},
        {1, 0, "", {yes}, true, ""}, // nothing can be written
        {0, 1, "", {yes}, true, ""},
        {0, 1, "f", {yes}, false, "bootsect"},
        {1, 0, "s", {yes}, false, "bootfile"},
        {1, 0, "fs", {yes, no}, true, "", drops},
        {0, 1, "fs", {yes, escape}, true, "", drops},
        {0, 1, "fs", {yes, yes}, false, "bootsect", drops},
        {1, 1, "s", {yes, no}, true, "bootfile", drops},
        {1, 1, "fs", {yes, yes, yes}, false, "bootfilebootsect", drops + drops},
        {1, 0, "", {yes}, false, "bootfilebootsect"},
        {0, 1, "", {yes, ok}, false, "bootfilebootsect", left_out},
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
        const bool fails = c.stays && c.responses == std::vector{yes}, asked = !c.responses.empty();
        app.pelva_db_path = directory.string() + (fails ? "/gone" : "");
        files_changed = c.files;
        sectors_changed = c.sectors;
        for (const list_kind kind : {list_kind::files, list_kind::sectors}) {
            template_of(app, kind).unmarked.clear();
            if (c.unmarked.find(kind == list_kind::files ? 'f' : 's') != std::string::npos)
                template_of(app, kind).unmarked.push_back({unmarked_reason::hidden, "gone"});
        }
        mark_recursive(&app, filebrowser_store(&app),
                       file_store_top(filebrowser_store(&app))->children[0].get(), c.asks == left_out);
        gtk_notebook_set_current_page(pages, 2);
        answered_dialogs user(c.responses);
        EXPECT_EQ(delete_event(app.window, nullptr, &app), c.stays);
        EXPECT_EQ(user.text,
                  !asked ? ""
                         : "Confirm: In data model were changes made. Save it before exiting?\n" + c.asks);
        EXPECT_EQ(files_changed | sectors_changed, c.stays);
        std::string saved;
        for (const std::string name : {"bootfile", "bootsect"})
            saved += fs::remove(directory / (name + ".nam")) ? name : "";
        EXPECT_EQ(saved, c.saves);
        // Where nothing could be written the page says why.
        const bool leads = c.stays && c.responses.front() == yes;
        EXPECT_EQ(gtk_notebook_get_current_page(pages), leads ? c.sectors : 2);
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
