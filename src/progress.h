// The progress window: a modal window with a pulsing bar, shown while an operation lasts longer than 100 ms.
#pragma once

#include <functional>

struct app;

// Bracket a long operation. They do not nest: a second start changes nothing, one stop ends it. What was
// pressed or scrolled during an operation that lasted long enough to be shown is dropped, whenever it is
// looked at: it was meant for rows that may have moved since.
void progress_start(struct app *app);
void progress_stop(struct app *app);

// Brackets a long operation that may be a part of another one, which it then leaves going.
class progress_scope {
public:
    explicit progress_scope(struct app *app);
    ~progress_scope();
    progress_scope(const progress_scope &) = delete;
    progress_scope &operator=(const progress_scope &) = delete;

private:
    struct app *app_; // null inside another operation
};

// To be called often in between: lets the main loop run, without waiting, when it last ran so long ago that
// the user would notice. The window, once it is shown, keeps input away from the rest; until then what is
// pressed waits for the end of the operation, so no input is ever handled in the middle of one. Nothing
// happens outside of one, nor while the process is ending (common/process.h): it always returns, and the
// operation looks for that itself.
void progress_run_main_loop(struct app *app);

// Does what may have to wait for a disk in a thread, and returns when it is done. Meanwhile the main loop
// runs as above; outside of an operation it stands still. The work must touch nothing that the main loop
// does.
void progress_wait(struct app *app, const std::function<void()> &work);

// The timers: after 100 ms, and every 200 ms from then on.
int progress_show(void *app);
int progress_pulse(void *app);
