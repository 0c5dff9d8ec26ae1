// The end by a signal: SIGINT, SIGTERM and SIGHUP end the process by its normal way out.
#pragma once

// From now on each of the three signals is noted at once (`ending`, common/process.h). The next main loop
// that runs, a dialog's included, then ends all of them: dialogs as if they had been closed, and gtk_main.
// Nothing is left in the middle; what runs outside of a main loop, or lets one run in between, sees `ending`
// and returns. A second signal changes nothing. What was ignored at start stays ignored.
void end_on_signals();
