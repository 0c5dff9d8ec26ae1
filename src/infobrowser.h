// The information page: which software and board firmware are in use, and where the templates lie, as the
// operating system and as the board name the directory.
#pragma once

struct app;

// The program's own version, such as "3.0.m2-2".
[[nodiscard]] const char *get_package_version();

// Fills both labels of the page. Always returns 1: a missing label leaves only a trace.
[[nodiscard]] int infobrowser_init(struct app *app);
