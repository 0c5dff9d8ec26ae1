// The progress window: a modal window with a pulsing bar, shown while an operation lasts longer than 100 ms.
#pragma once

struct app;

// Bracket a long operation. They do not nest: a second start changes nothing, one stop ends it.
void progress_start(struct app *app);
void progress_stop(struct app *app);

// To be called often in between: lets the main loop run, without waiting, when it last ran so long ago that
// the user would notice. Before the window is shown (and keeps input away from the rest) it does nothing, so
// no event is ever handled in the middle of an operation. Nothing happens outside of one, nor while the
// process is ending (common/process.h): it always returns, and the operation looks for that itself.
void progress_run_main_loop(struct app *app);

// The timers: after 100 ms, and every 200 ms from then on.
int progress_show(void *app);
int progress_pulse(void *app);
