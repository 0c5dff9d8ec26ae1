// The file browser page: a tree of the usable partitions, their directories and regular files.
#pragma once

struct app;

// Builds the page; called once, after the window description is loaded. Returns 1, or 0 when the description
// lacks a widget of the page.
[[nodiscard]] int filebrowser_init(struct app *app);

// Called at shutdown; the tree view owns everything that there is to release.
void filebrowser_release(struct app *app);
