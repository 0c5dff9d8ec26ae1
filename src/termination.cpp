#include "termination.h"

#include "trace_log.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <glib-unix.h>
#include <unistd.h>

namespace {

constexpr std::array ending_signals = {SIGINT, SIGTERM, SIGHUP};

// From the signal handler to the main loop.
std::array<int, 2> ends = {-1, -1};

void on_signal(int number)
{
    const int error = errno;
    const auto byte = static_cast<unsigned char>(number);
    (void)!write(ends[1], &byte, 1);
    errno = error;
}

gboolean on_readable(gint, GIOCondition, gpointer)
{
    unsigned char number = 0;
    if (read(ends[0], &number, 1) != 1)
        return G_SOURCE_CONTINUE;
    trace_log("Ended by signal %d", number);
    std::exit(128 + number);
}

} // namespace

void end_on_signals()
{
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        trace_log("Cannot make a pipe: %s", std::strerror(errno));
        return;
    }
    g_unix_fd_add_full(G_PRIORITY_HIGH, ends[0], G_IO_IN, on_readable, nullptr, nullptr);
    for (const int number : ending_signals) {
        struct sigaction before = {}, after = {};
        after.sa_handler = on_signal;
        after.sa_flags = SA_RESTART;
        if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            sigaction(number, &after, nullptr);
    }
}
