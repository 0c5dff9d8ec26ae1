// The information page: the versions of the program and of the board, and where the templates live.
#pragma once

struct app;

// Fills the page. Always returns 1: a missing label leaves only a trace.
[[nodiscard]] int infobrowser_init(struct app *app);
