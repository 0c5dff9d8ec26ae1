#include "main_window.h"

#include "app.h"
#include "callbacks.h"
#include "common/host.h"
#include "dialogs.h"
#include "diskbrowser.h"
#include "filebrowser.h"
#include "i18n.h"
#include "infobrowser.h"
#include "notice_bar.h"
#include "report.h"
#include "start_questions.h"
#include "trace_log.h"
#include "window_description.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <gtk/gtk.h>
#include <utility>

namespace {

struct tree_icon {
    const char *file;
    GdkPixbuf *app::*field;
};

constexpr tree_icon tree_icons[] = {
    {"/usr/share/gtk-tarnel//images/folder_normal.png", &app::folder_normal},
    {"/usr/share/gtk-tarnel//images/folder_marked.png", &app::folder_marked},
    {"/usr/share/gtk-tarnel//images/file_normal.png", &app::file_normal},
    {"/usr/share/gtk-tarnel//images/file_marked.png", &app::file_marked},
    {"/usr/share/gtk-tarnel//images/disk_normal.png", &app::disk_normal},
    {"/usr/share/gtk-tarnel//images/disk_marked.png", &app::disk_marked},
};

const window_handler handlers[] = {
    {"delete_event", G_CALLBACK(delete_event)},
    {"on_close", G_CALLBACK(on_close)},
    {"on_files_save_clicked", G_CALLBACK(on_files_save_clicked)},
    {"on_sectors_save_clicked", G_CALLBACK(on_sectors_save_clicked)},
    {"on_files_clear_clicked", G_CALLBACK(on_files_clear_clicked)},
    {"on_sectors_clear_clicked", G_CALLBACK(on_sectors_clear_clicked)},
    {"on_files_default_clicked", G_CALLBACK(on_files_default_clicked)},
    {"on_sectors_default_clicked", G_CALLBACK(on_sectors_default_clicked)},
    {"on_report_button_clicked", G_CALLBACK(on_report_button_clicked)},
};

// An image that cannot be loaded leaves its field empty; the tree then shows rows without it.
void load_pixbufs(struct app *app)
{
    for (const tree_icon &icon : tree_icons)
        app->*icon.field = gdk_pixbuf_new_from_file(host_path(icon.file).c_str(), nullptr);
}

void free_pixbufs(struct app *app)
{
    for (const tree_icon &icon : tree_icons) {
        if (app->*icon.field)
            g_object_unref(app->*icon.field);
        app->*icon.field = nullptr;
    }
}

// Gives the named widgets that exist the width of the widest of them. `names` ends with a null.
void equalize_widths(window_description *xml, const char *const *names)
{
    gint widest = -1;
    for (const char *const *name = names; *name; ++name) {
        if (GtkWidget *widget = described_widget(xml, *name)) {
            GtkAllocation allocation;
            gtk_widget_get_allocation(widget, &allocation);
            widest = std::max(widest, allocation.width);
        }
    }
    for (const char *const *name = names; *name; ++name) {
        if (GtkWidget *widget = described_widget(xml, *name))
            gtk_widget_set_size_request(widget, widest, -1);
    }
}

[[noreturn]] void end_with_failure()
{
    std::fprintf(stderr, "%s\n",
                 _("Files of the program in /usr/share/gtk-tarnel are missing or damaged. Install it anew."));
    gtk_exit(EXIT_FAILURE);
    std::abort(); // not reached: GTK declares its exit without saying that it does not return
}

// Loads the description and everything of it that this module uses itself, unless that has been done.
bool load_windows(struct app *app)
{
    if (app->window)
        return true;
    app->xml = load_window_description(host_path(window_description_file));
    if (!app->xml) {
        trace_log("Cannot load glade file, aborting");
        return false;
    }
    load_pixbufs(app);
    connect_handlers(app->xml, handlers, app);
    app->progress_window = described_widget(app->xml, "progress_window");
    app->progressbar = described_widget(app->xml, "progressbar");
    if (!app->progress_window || !app->progressbar) {
        trace_log("Cannot find progress widget, aborting");
        return false;
    }
    app->window = described_widget(app->xml, "window");
    static constexpr const char *pages[] = {"vbox_files", "vbox_sectors", "vbox_info", nullptr};
    equalize_widths(app->xml, pages);
    return true;
}

bool init_pages(struct app *app)
{
    if (!filebrowser_init(app)) {
        std::puts("Cannot initialize file browser, aborting");
        trace_log("Cannot initialize file browser, aborting");
        return false;
    }
    if (!diskbrowser_init(app)) {
        trace_log("Cannot initialize disk browser, aborting");
        return false;
    }
    app->board = hear_board(std::move(app->asked_board));
    static_cast<void>(infobrowser_init(app)); // it always succeeds
    if (!report_init(app)) {
        trace_log("Cannot initialize report browser, aborting");
        return false;
    }
    return true;
}

void show_page_of(GtkWidget *view)
{
    GtkNotebook *pages = GTK_NOTEBOOK(gtk_widget_get_ancestor(view, GTK_TYPE_NOTEBOOK));
    for (gint page = 0; page < gtk_notebook_get_n_pages(pages); ++page)
        if (gtk_widget_is_ancestor(view, gtk_notebook_get_nth_page(pages, page)))
            gtk_notebook_set_current_page(pages, page);
}

// A template with entries that the tree does not show is written only for changes of its own. Each save
// clears its own flag; one that could not be written, or that the user did not want after all, keeps it.
void save_both(struct app *app)
{
    for (const list_kind kind : {list_kind::files, list_kind::sectors})
        if (changes_of(kind) || template_of(*app, kind).unmarked.empty())
            save_template(app, kind, false);
    if (files_changed != sectors_changed)
        show_page_of(files_changed ? app->filebrowser : app->diskbrowser);
    else if (files_changed && !gtk_widget_get_mapped(app->diskbrowser))
        show_page_of(app->filebrowser);
}

// The bar that says so goes with the window.
void tell_left_out(const struct app *app)
{
    const notice &said = app->file_template.notices[static_cast<std::size_t>(notice_subject::left_out)];
    if (!said.text.empty())
        dialog_ok_list(app->window, _("Warning"), said.text.c_str(), "%s", lines_of(said.names).c_str());
}

bool keeps_running(int response)
{
    return response == GTK_RESPONSE_CANCEL || response == GTK_RESPONSE_DELETE_EVENT;
}

} // namespace

std::span<const window_handler> main_window_handlers()
{
    return handlers;
}

void prepare_gui(struct app *app)
{
    GtkRequisition ignored;
    if (load_windows(app) && app->window)
        gtk_widget_size_request(app->window, &ignored);
}

int app_init_gui(struct app *app)
{
    trace_log("* Enter");
    if (!load_windows(app) || !init_pages(app)) {
        trace_log("* Failed");
        end_with_failure();
    }
    ask_start_questions(app);
    trace_log("* Success");
    return 0;
}

void warn_missing_board(struct app *app)
{
    if (app->board.present)
        return;
    trace_log("Pelva device is not found");
    dialog_ok(app->window, _("Warning"), "%s", _("Pelva device is not found."));
}

int confirm_save_changes(struct app *app)
{
    const int response = dialog_yes_no_cancel(app->window, _("Confirm"), "%s",
                                              _("In data model were changes made. Save it before exiting?"));
    if (response == GTK_RESPONSE_YES) {
        save_both(app);
        if (!files_changed && !sectors_changed)
            tell_left_out(app);
    } else if (response == GTK_RESPONSE_NO) {
        files_changed = 0;
        sectors_changed = 0;
    }
    return response;
}

int delete_event(GtkWidget *, GdkEvent *, struct app *app)
{
    std::puts("Delete event occurred");
    if (!files_changed && !sectors_changed)
        return FALSE;
    // A template that could not be saved keeps the window too: closing it would lose the marks.
    return keeps_running(confirm_save_changes(app)) || files_changed || sectors_changed;
}

void on_close(GtkWidget *, struct app *app)
{
    std::puts("Destroy signal was sent");
    if ((!files_changed && !sectors_changed) || !keeps_running(confirm_save_changes(app)))
        gtk_main_quit();
}

void app_cleanup(struct app *app)
{
    filebrowser_release(app);
    diskbrowser_release(app);
    umount_partitions(app);
    free_pixbufs(app);
}
