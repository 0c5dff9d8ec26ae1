// What the tree should show and cannot: directories that could not be read, files that the board cannot name.
#include "filebrowser.h"

#include "common/owned.h"
#include "i18n.h"
#include "notice_bar.h"

#include <utility>

namespace {

// As the user finds it in the tree: "/dev/sda1: /boot/grub".
std::string name_for_user(const file_node &directory)
{
    if (directory.is_root() || !directory.parent)
        return directory.name + ": /";
    const std::string above = name_for_user(*directory.parent);
    return above + (above.ends_with('/') ? "" : "/") + directory.name;
}

std::string gaps_text(std::size_t unread, std::size_t too_long)
{
    if (unread == 0 && too_long == 0)
        return "";
    if (too_long == 0)
        return with_count(P_("%u directory could not be read in full. What is missing there is not marked.",
                             "%u directories could not be read in full. What is missing there is not marked.",
                             unread),
                          unread);
    if (unread == 0)
        return with_count(P_("%u file has too long a path. It is not marked.",
                             "%u files have too long a path. They are not marked.", too_long),
                          too_long);
    // The first and the second half of one sentence.
    const std::string directories = with_count(
        P_("%u directory could not be read in full", "%u directories could not be read in full", unread),
        unread);
    const std::string files =
        with_count(P_("%u file has too long a path", "%u files have too long a path", too_long), too_long);
    const owned_gchar text(
        g_strdup_printf(_("%s, and %s. They are not marked."), directories.c_str(), files.c_str()));
    return text.get();
}

} // namespace

void note_gaps(struct app *app, file_node *directory, directory_gaps gaps)
{
    const bool has_gaps = gaps.unread || !gaps.too_long.empty();
    if (has_gaps)
        app->gaps.insert_or_assign(name_for_user(*directory), std::move(gaps));
    else if (directory->has_gaps)
        app->gaps.erase(name_for_user(*directory));
    directory->has_gaps = has_gaps;
}

bool is_partly_unread(const struct app &app, const file_node &directory)
{
    return directory.has_gaps && app.gaps.at(name_for_user(directory)).unread;
}

void count_gaps(struct app *app, const file_node &directory)
{
    if (directory.has_gaps)
        app->gaps.at(name_for_user(directory)).counted = true;
}

void tell_gaps(struct app *app)
{
    std::size_t unread = 0, too_long = 0;
    std::list<std::string> names;
    for (const auto &[directory, gaps] : app->gaps) {
        if (!gaps.counted)
            continue;
        unread += gaps.unread;
        too_long += gaps.too_long.size();
        if (gaps.unread)
            names.push_back(directory);
        for (const std::string &name : gaps.too_long)
            names.push_back(build_path(directory, name));
    }
    const std::string text = gaps_text(unread, too_long);
    const notice &said = app->file_template.notices.at(static_cast<std::size_t>(notice_subject::gaps));
    if (said.text != text || said.names != names)
        set_notice(app, list_kind::files, notice_subject::gaps, text, std::move(names));
}
