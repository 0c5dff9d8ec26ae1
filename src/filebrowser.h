// The file browser: the tree of partitions, directories and files, read from disk as it is unfolded; the
// marks on it with their totals; and the marks that the saved template brings back.
//
// Rows are `file_node`s of the `file_store` that the tree view shows. All functions except filebrowser_init
// and the signal handlers work without a display, with null widgets in `app`.
#pragma once

#include "app.h"
#include "file_store.h"

#include <string>
#include <string_view>

// Builds the browser in the loaded window description and pre-marks it. False when a widget is missing.
[[nodiscard]] bool filebrowser_init(struct app *app);

// At shutdown, before the images are released and while `app` still stands.
void filebrowser_release(struct app *app);

// The store behind the tree view; null before filebrowser_init and after the window is gone.
[[nodiscard]] file_store *filebrowser_store(struct app *app);

// --- Rows and loading ---

// A new store with the partition rows; the caller owns the reference.
[[nodiscard]] file_store *create_model(struct app *app);

// A directory row with its placeholder child; a partition row when `parent` is the top node. It becomes the
// last child, or the one at the position.
file_node *append_dir(file_store *store, file_node *parent, std::string name, mount_entry *mount,
                      std::size_t position = last_child);
file_node *append_file(file_store *store, file_node *parent, std::string name, std::uint64_t size,
                       std::size_t position = last_child);

// Reads the directory of a row unless that was done before. Always 0: what could not be read is noted.
int load_directory_content(struct app *app, file_store *store, file_node *row);

// The same for a row that is unfolded or marked, which counts what it leaves out; a directory that could not
// be read in full is tried again.
void load_iter(struct app *app, file_store *store, file_node *row);

// Whether the directory lies on a mount of a device other than the given device node.
[[nodiscard]] bool check_dir_mount(const std::string &directory, const std::string &device);

// The row of an absolute local path, reading the directories on the way. 0 and the row, or -1: the path
// cannot be examined, -2: on no partition of the tree, -3: its device is not mounted, -4: it has no row.
[[nodiscard]] int find_iter_for_file(struct app *app, file_store *store, const std::string &path,
                                     file_node **row);

// Its steps: from *row down a relative path, or by one name. 0, or -1 when there is no such row.
[[nodiscard]] int find_iter_from(struct app *app, file_store *store, std::string_view path, file_node **row);
[[nodiscard]] int find_iter_go_down(struct app *app, file_store *store, const std::string &name,
                                    file_node **row);

// --- What has no row and should have one ---

// Notes what a directory just read leaves out, in place of what was noted of it before.
void note_gaps(struct app *app, file_node *directory, directory_gaps gaps);

// Whether the directory was read, but not in full.
[[nodiscard]] bool is_partly_unread(const struct app &app, const file_node &directory);

// What the directory leaves out is told from now on.
void count_gaps(struct app *app, const file_node &directory);

// Lets the page say what was counted so far.
void tell_gaps(struct app *app);

// --- Marks and totals ---

// Sets the mark of one row to 0 or 1. For a file it also keeps the counts, marks and images of the rows above
// and the totals in `app`; the labels follow before the next repaint. During a long operation (progress.h) it
// may let the main loop run. Always 1.
int mark_iter(struct app *app, file_store *store, file_node *row, int value);

// Flips one row; a directory or partition with everything below it. The new mark of a file, false
// for a directory.
bool toggle_iter(struct app *app, file_store *store, file_node *row);

// Sets every file below a directory or partition; marking reads what was not read yet.
void mark_recursive(struct app *app, file_store *store, file_node *directory, int value);

// Sets the siblings from one row to another, both included; `from` comes first.
void mark_range(struct app *app, file_store *store, file_node *from, file_node *to, int value);

// Shows the totals in their labels at once.
void show_file_totals(struct app *app);

// Drops an update of the labels that is due.
void forget_file_totals();

// Right button: marks; with Shift or Control everything from the cursor to the clicked row.
gboolean on_filebrowser_button_press(GtkWidget *view, GdkEventButton *event, struct app *app);
void multiple_select(struct app *app, GtkTreeView *view, file_store *store, file_node *clicked);

// --- The saved template ---

// Marks the files that the saved template lists. Collects in `file_template` the records that mark no row,
// and whether there is a template that cannot be read. 0; -1: no name file, -2: the headers are not valid,
// -3: a name could not be converted.
int fill_model(struct app *app, file_store *store);
