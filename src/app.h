// The application record: the state of the running program. There is one, in main.cpp; the windows are handed
// a pointer to it, and everything below them one to the environment in it. It owns its strings and icons;
// widgets belong to the window description.
#pragma once

#include "common/board.h"
#include "common/check.h"
#include "common/environment.h"
#include "common/file_format.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

typedef struct _GtkWidget GtkWidget;
typedef struct _GdkPixbuf GdkPixbuf;

struct window_description;

// 1 while the marks differ from the saved template.
inline std::int32_t files_changed = 0;
inline std::int32_t sectors_changed = 0;

constexpr std::size_t path_buf_size = 1024;

// What a page may have to say of its template, and of what it shows (notice_bar.h).
enum class notice_subject { not_taken_over, left_out, not_saved, disks, gaps, changed, count };
struct notice {
    std::string text;             // empty: nothing
    std::list<std::string> names; // of the files or sectors concerned
};

// Why an entry of the saved template is no mark in the tree: there is no such file or sector on this machine,
// or it is there and has no row, or nobody can read the entry, or the whole template.
enum class unmarked_reason { missing, hidden, unread, unread_template };
struct unmarked_entry {
    unmarked_reason reason;
    std::string text; // as the user knows the file or sector; bytes
};

// What became of a saved template at the start, and of the saves since.
struct saved_template {
    std::list<unmarked_entry> unmarked; // what the next save drops
    save_time saved = {};               // at the start
    std::list<std::string> changed;     // marked files that have changed since it was saved; bytes
    std::array<notice, static_cast<std::size_t>(notice_subject::count)> notices = {};
};

// What a directory holds that the tree should show, and does not.
struct directory_gaps {
    bool unread = false;               // it could not be read, or not in full
    bool counted = false;              // a mark went over it, or it was unfolded
    std::vector<std::string> too_long; // files whose path is too long for the board
};

struct app : environment {
    board_question asked_board;        // from before the windows are built
    board_answer board;                // from when they need it
    window_description *xml = nullptr; // the windows as loaded
    GtkWidget *window = nullptr;       // parent of the dialogs
    GtkWidget *report = nullptr;
    GtkWidget *progress_window = nullptr;
    GtkWidget *progressbar = nullptr;
    std::uint32_t progress_pending = 0; // 1 while a display of the progress window is requested

    std::map<std::string, directory_gaps>
        gaps; // of the directories that have some, by their names for the user
    saved_template file_template;
    saved_template sector_template;

    GdkPixbuf *folder_normal = nullptr; // one reference each, null when the image could not be loaded
    GdkPixbuf *folder_marked = nullptr;
    GdkPixbuf *file_normal = nullptr;
    GdkPixbuf *file_marked = nullptr;
    GdkPixbuf *disk_normal = nullptr;
    GdkPixbuf *disk_marked = nullptr;

    std::uint32_t total_files_selected = 0;
    std::uint64_t total_files_size = 0; // bytes
    GtkWidget *total_files_selected_label = nullptr;
    GtkWidget *total_files_size_label = nullptr;

    char path_buf[path_buf_size] = {}; // path of the row that a tree walk is visiting
    char *path_end = nullptr;          // inside path_buf: where the next component goes
    GtkWidget *filebrowser = nullptr;

    std::uint32_t total_sectors_selected = 0;
    std::uint64_t total_sectors_size = 0; // bytes, 512 per sector
    GtkWidget *total_sectors_selected_label = nullptr;
    GtkWidget *total_sectors_size_label = nullptr;
    GtkWidget *diskbrowser = nullptr;

    GtkWidget *file_report = nullptr;
    GtkWidget *sector_report = nullptr;

    std::FILE *fsnon = nullptr; // name and check file: both open while a template is written,
    std::FILE *fsncv = nullptr; // both null otherwise
    std::shared_ptr<struct template_save> saving; // and the rest of what writing it needs
};

inline saved_template &template_of(struct app &app, list_kind kind)
{
    return kind == list_kind::files ? app.file_template : app.sector_template;
}

inline std::int32_t &changes_of(list_kind kind)
{
    return kind == list_kind::files ? files_changed : sectors_changed;
}
