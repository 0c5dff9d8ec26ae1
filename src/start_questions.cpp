#include "start_questions.h"

#include "app.h"
#include "callbacks.h"
#include "common/filesystem.h"
#include "common/owned.h"
#include "dialogs.h"
#include "display_text.h"
#include "i18n.h"
#include "notice_bar.h"

#include <gtk/gtk.h>
#include <utility>

namespace {

// True for Yes; any other answer keeps the template as it is.
bool may_drop(struct app *app, saved_template &saved, const char *question, std::list<std::string> &missing)
{
    std::string list;
    for (const std::string &entry : std::exchange(missing, {}))
        list += display_text(entry) + "\n";
    saved.kept =
        dialog_yes_no_list(app->window, _("Confirm"), question, _("%s"), list.c_str()) != GTK_RESPONSE_YES;
    return !saved.kept;
}

std::string hidden_files_text(std::size_t count)
{
    const owned_gchar text(g_strdup_printf(
        P_("%u file of the saved template is not shown in the tree. The next save drops it.",
           "%u files of the saved template are not shown in the tree. The next save drops them.", count),
        static_cast<unsigned>(count)));
    return text.get();
}

std::string dropped_files_text(std::size_t count)
{
    const owned_gchar text(g_strdup_printf(
        P_("%u file of the saved template is not shown in the tree. It is no longer in the template.",
           "%u files of the saved template are not shown in the tree. They are no longer in the template.",
           count),
        static_cast<unsigned>(count)));
    return text.get();
}

void tell_what_was_not_taken_over(struct app *app, list_kind kind, const std::list<std::string> &hidden)
{
    std::string text = hidden.empty() ? "" : hidden_files_text(hidden.size());
    if (template_of(*app, kind).unreadable)
        text += (text.empty() ? "" : "\n") +
                std::string(_("The saved template cannot be read. The next save replaces it."));
    set_notice(app, kind, notice_subject::not_taken_over, text, hidden);
}

} // namespace

void ask_delete_missing_files(struct app *app)
{
    if (app->missing_files.empty() ||
        !may_drop(app, app->file_template,
                  _("The following files are missing. Delete these files from a template?"),
                  app->missing_files))
        return;
    const std::list<std::string> hidden = app->hidden_files;
    on_files_save_clicked(nullptr, app);
    // The save has dropped these, too, before anybody could have seen what the page said of them.
    if (!hidden.empty() && app->hidden_files.empty())
        set_notice(app, list_kind::files, notice_subject::not_taken_over, dropped_files_text(hidden.size()),
                   hidden);
}

void ask_delete_missing_sectors(struct app *app)
{
    if (!app->missing_sectors.empty() &&
        may_drop(app, app->sector_template,
                 _("The following sectors not found. Delete a sectors from a template?"),
                 app->missing_sectors))
        on_sectors_save_clicked(nullptr, app);
}

void warn_ntfs(struct app *app)
{
    for (const disk &d : app->disks) {
        for (const part &p : d.parts) {
            if (file_system_of(p).mount_package && !p.mount_point)
                dialog_ok(app->window, _("Warning"),
                          _("Cannot read files on partition %s%s%d with NTFS.\n"
                            "Perhaps the ntfs-3g package is not installed."),
                          p.device.c_str(), partition_separator(p.device), p.index);
        }
    }
}

void ask_start_questions(struct app *app)
{
    tell_what_was_not_taken_over(app, list_kind::files, app->hidden_files);
    tell_what_was_not_taken_over(app, list_kind::sectors, {});
    ask_delete_missing_files(app);
    warn_ntfs(app);
    ask_delete_missing_sectors(app);
}
