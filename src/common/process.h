// What this process is to the system: its standard streams, and the signals that end it.
#pragma once

// To be called before anything is opened. Standard streams that are closed become /dev/null, for us and for
// what we start. Commands are those of the system, whatever PATH was given. A reader of our output that goes
// away is a failed write and no more. What we start can be waited for, whatever was ignored at start.
void settle_process();

// Whether SIGINT, SIGTERM or SIGHUP has arrived. It stays so. Whatever takes long looks at it between its
// steps and leaves by its own way out: descriptors closed, what was begun dropped, nothing asked.
[[nodiscard]] bool ending();

// The exit status that goes with it: 128 and the number of the first of these signals.
[[nodiscard]] int ending_status();

// Notes a signal that ends the process; of several the first counts. May be called in a signal handler.
void note_ending(int signal);
