// Saving the report: the file chooser with its questions, and the document.
#include "app.h"
#include "common/owned.h"
#include "common/process.h"
#include "dialogs.h"
#include "display_text.h"
#include "i18n.h"
#include "notice_bar.h"
#include "report.h"
#include "report_file.h"
#include "rtf_export.h"
#include "trace_log.h"

#include <cerrno>
#include <gtk/gtk.h>
#include <list>
#include <optional>
#include <string>
#include <utility>

namespace {

constexpr std::uint32_t checked_sector_size = 512;

struct report_lists {
    GtkTreeModel *files;
    GtkTreeModel *sectors;
};

// As the dialogs show it.
std::string shown_name(const std::string &path)
{
    return display_text(path.substr(path.rfind('/') + 1));
}

GtkWidget *make_chooser(const struct app &app)
{
    GtkWidget *chooser = gtk_file_chooser_dialog_new(
        _("Save report"), GTK_WINDOW(app.report), GTK_FILE_CHOOSER_ACTION_SAVE, GTK_STOCK_CANCEL,
        GTK_RESPONSE_CANCEL, GTK_STOCK_SAVE, GTK_RESPONSE_ACCEPT, nullptr);
    gtk_dialog_set_default_response(GTK_DIALOG(chooser), GTK_RESPONSE_ACCEPT);

    GtkFileFilter *rtf = gtk_file_filter_new();
    gtk_file_filter_set_name(rtf, "Rich Text Format (.rtf)");
    gtk_file_filter_add_mime_type(rtf, "application/rtf");
    gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(chooser), rtf);
    GtkFileFilter *all = gtk_file_filter_new();
    gtk_file_filter_set_name(all, _("All Files"));
    gtk_file_filter_add_pattern(all, "*");
    gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(chooser), all);

    // Without a folder the save button would do nothing until one is picked.
    gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(chooser), g_get_home_dir());
    gtk_file_chooser_set_current_name(GTK_FILE_CHOOSER(chooser), _("report.rtf"));
    return chooser;
}

void tell_unwritable(GtkWidget *parent, const std::string &path, int reason)
{
    dialog_ok(parent, _("Error"), _("Cannot write file «%s»: %s"), shown_name(path).c_str(),
              g_strerror(reason));
}

// The document can hold no more than its code page.
void tell_empty_lines(GtkWidget *parent, const std::list<std::string> &names)
{
    const std::string text = with_count(
        P_("The name of %u file has characters that the document cannot hold. Its line is empty:",
           "The names of %u files have characters that the document cannot hold. Their lines are empty:",
           names.size()),
        names.size());
    dialog_ok_list(parent, _("Warning"), text.c_str(), "%s", lines_of(names).c_str());
}

// Whether the report may be written under this name, and its place if so. Nothing but an RTF document is ever
// overwritten. The questions belong to the chooser, not to the window behind it: so they stay above it, and
// when they go, the window manager gives the focus back to it.
bool accept_name(GtkWidget *chooser, const std::string &path, report_place &place)
{
    trace_log("Saving report as: %s", path.c_str());
    bool is_link = false;
    if (!find_report_place(place, path, is_link)) {
        if (errno != ENOENT) {
            dialog_ok(chooser, _("Error"), "%s", _("Cannot open file for writing"));
            return false;
        }
        if (!is_link)
            return true;                        // the directory is missing
        tell_unwritable(chooser, path, ENOENT); // a link that leads nowhere
        return false;
    }
    if (!place.old_file)
        return true;
    const std::string name = shown_name(path);
    if (dialog_yes_no(chooser, _("Warning"), _("File «%s» already exists. Rewrite it?"), name.c_str()) !=
        GTK_RESPONSE_YES) {
        trace_log("User has cancelled rewrite file");
        return false;
    }
    if (!holds_rtf(place)) {
        dialog_ok(chooser, _("Error"), _("File «%s» is not rtf-document."), name.c_str());
        trace_log("File %s is not rtf-document.", path.c_str());
        return false;
    }
    return true;
}

// GTK's chooser looks at folders in the background and does not survive its end in the middle of that, so it
// goes when it has had the time to finish.
void close_chooser(GtkWidget *chooser)
{
    constexpr guint seconds = 10;
    gtk_widget_hide(chooser);
    g_timeout_add_seconds(
        seconds,
        [](gpointer hidden) -> gboolean {
            gtk_widget_destroy(GTK_WIDGET(hidden));
            return FALSE;
        },
        chooser);
}

// Nothing when the user gives up.
std::optional<std::string> choose_name(const struct app &app, report_place &place)
{
    GtkWidget *chooser = make_chooser(app);
    std::optional<std::string> accepted;
    while (!accepted) {
        if (run_dialog(chooser) != GTK_RESPONSE_ACCEPT) {
            trace_log("User has cancelled report saving");
            break;
        }
        const owned_gchar path(gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(chooser)));
        place = report_place();
        if (!path)
            trace_log("User has't declared file");
        else if (accept_name(chooser, path.get(), place))
            accepted = path.get();
    }
    close_chooser(chooser);
    return accepted;
}

void write_rows(rtf_report &report, const report_lists &lists)
{
    rtf_files_begin(report);
    GtkTreeIter row;
    for (gboolean more = gtk_tree_model_get_iter_first(lists.files, &row); more && !ending();
         more = gtk_tree_model_iter_next(lists.files, &row)) {
        gchar *path = nullptr;
        guint64 size = 0;
        gtk_tree_model_get(lists.files, &row, file_report_path, &path, file_report_size, &size, -1);
        const owned_gchar owner(path);
        rtf_file_line(report, path, size);
    }
    rtf_files_end(report);

    rtf_sectors_begin(report);
    for (gboolean more = gtk_tree_model_get_iter_first(lists.sectors, &row); more;
         more = gtk_tree_model_iter_next(lists.sectors, &row)) {
        gchar *path = nullptr;
        gtk_tree_model_get(lists.sectors, &row, sector_report_path, &path, -1);
        const owned_gchar owner(path);
        rtf_sector_line(report, path, checked_sector_size);
    }
    rtf_sectors_end(report);
}

} // namespace

void report_save_clicked(GtkWidget *, struct app *app)
{
    const report_lists lists = {gtk_tree_view_get_model(GTK_TREE_VIEW(app->file_report)),
                                gtk_tree_view_get_model(GTK_TREE_VIEW(app->sector_report))};
    if (!lists.files || !lists.sectors)
        return;
    report_place place;
    const std::optional<std::string> path = choose_name(*app, place);
    report_file file;
    if (!path)
        return;
    if (!open_report_file(file, std::move(place))) {
        const int reason = errno;
        trace_log("Cannot open file for writing: %s", path->c_str());
        tell_unwritable(app->report, *path, reason);
        return;
    }
    auto report = rtf_begin(file.stream.get());
    if (!report) {
        dialog_ok(app->report, _("Error"), "%s", _("Memory allocation error"));
        return;
    }
    write_rows(*report, lists);
    const std::list<std::string> unwritten = std::move(report->unwritten);
    rtf_end(std::move(report));
    if (ending())
        return;
    if (!put_in_place(file))
        tell_unwritable(app->report, *path, errno);
    else if (!unwritten.empty())
        tell_empty_lines(app->report, unwritten);
}
