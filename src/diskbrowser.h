// The sector browser page: a tree of the disks with the sectors that the firmware can check on them.
#pragma once

struct app;

// Builds the page; called once, after the window description is loaded. Returns 1, or 0 when the description
// lacks a widget of the page.
[[nodiscard]] int diskbrowser_init(struct app *app);

// Called at shutdown; the tree view owns everything that there is to release.
void diskbrowser_release(struct app *app);
