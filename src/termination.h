// The end by a signal: SIGINT, SIGTERM and SIGHUP end the process through its exit handlers.
#pragma once

// From now on each of the three signals ends the process with status 128 + its number, as soon as a main loop
// runs, a dialog's included: not in the middle of anything. What was ignored at start stays ignored.
void end_on_signals();
