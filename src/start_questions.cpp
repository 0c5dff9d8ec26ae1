#include "start_questions.h"

#include "app.h"
#include "callbacks.h"
#include "common/filesystem.h"
#include "common/owned.h"
#include "dialogs.h"
#include "display_text.h"
#include "i18n.h"
#include "notice_bar.h"
#include "template_save.h"

#include <gtk/gtk.h>
#include <utility>

namespace {

using entries = std::list<unmarked_entry>;

// What the start says of the entries of each list.
struct entry_texts {
    const char *missing;
    std::string (*hidden)(std::size_t count);
};

std::string hidden_files_text(std::size_t count)
{
    return with_count(
        P_("%u file of the saved template is not shown in the tree. The next save drops it.",
           "%u files of the saved template are not shown in the tree. The next save drops them.", count),
        count);
}

std::string hidden_sectors_text(std::size_t count)
{
    return with_count(
        P_("%u sector of the saved template is not shown in the tree. The next save drops it.",
           "%u sectors of the saved template are not shown in the tree. The next save drops them.", count),
        count);
}

entry_texts texts_of(list_kind kind)
{
    if (kind == list_kind::files)
        return {_("The following files are missing. Delete these files from a template?"), hidden_files_text};
    return {_("The following sectors not found. Delete a sectors from a template?"), hidden_sectors_text};
}

entries take(entries &from, unmarked_reason reason)
{
    entries taken;
    for (auto at = from.begin(); at != from.end();) {
        const auto entry = at++;
        if (entry->reason == reason)
            taken.splice(taken.end(), from, entry);
    }
    return taken;
}

void tell_what_was_not_taken_over(struct app *app, list_kind kind)
{
    std::string text;
    const auto add = [&text](const std::string &line) { text += (text.empty() ? "" : "\n") + line; };
    std::list<std::string> names;
    std::size_t hidden = 0, unread = 0;
    for (const unmarked_entry &entry : template_of(*app, kind).unmarked) {
        hidden += entry.reason == unmarked_reason::hidden ? 1 : 0;
        unread += entry.reason == unmarked_reason::unread ? 1 : 0;
        if (entry.reason == unmarked_reason::hidden || entry.reason == unmarked_reason::unread)
            names.push_back(entry.text);
        if (entry.reason == unmarked_reason::unread_template)
            add(_("The saved template cannot be read. The next save replaces it."));
    }
    if (hidden)
        add(texts_of(kind).hidden(hidden));
    if (unread)
        add(_("Not all of the saved template can be read. The next save drops the rest."));
    set_notice(app, kind, notice_subject::not_taken_over, text, std::move(names));
    tell_interrupted_save(app, kind);
}

void tell_changed_files(struct app *app)
{
    std::list<std::string> &changed = app->file_template.changed;
    if (changed.empty())
        return;
    const std::string text =
        with_count(P_("%u marked file has changed since the template was saved.",
                      "%u marked files have changed since the template was saved.", changed.size()),
                   changed.size());
    set_notice(app, list_kind::files, notice_subject::changed, text, std::exchange(changed, {}));
}

void ask_delete_missing(struct app *app, list_kind kind)
{
    entries &unmarked = template_of(*app, kind).unmarked;
    entries missing = take(unmarked, unmarked_reason::missing);
    const std::string list = list_unmarked(missing);
    // With Yes these are given up; a save that would drop more asks for that.
    const bool saved = !missing.empty() &&
                       dialog_yes_no_list(app->window, _("Confirm"), texts_of(kind).missing, "%s",
                                          list.c_str()) == GTK_RESPONSE_YES &&
                       save_template(app, kind, false);
    if (!saved)
        unmarked.splice(unmarked.begin(), missing);
}

} // namespace

void ask_delete_missing_files(struct app *app)
{
    ask_delete_missing(app, list_kind::files);
}

void ask_delete_missing_sectors(struct app *app)
{
    ask_delete_missing(app, list_kind::sectors);
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
    for (const list_kind kind : {list_kind::files, list_kind::sectors})
        tell_what_was_not_taken_over(app, kind);
    tell_changed_files(app);
    ask_delete_missing_files(app);
    warn_ntfs(app);
    ask_delete_missing_sectors(app);
}
