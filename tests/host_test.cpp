// Shell commands come to their end, whatever signals arrive meanwhile.
#include "common/host.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

volatile std::sig_atomic_t delivered = 0;

TEST(host, signals_do_not_end_a_command_and_are_not_lost)
{
    const auto before = std::signal(SIGTERM, [](int) { delivered = delivered + 1; });
    // The shell, what it starts, and this process get one each, as from a terminal or at a shutdown.
    EXPECT_EQ(run_command("for s in HUP INT TERM; do kill -$s $$; sh -c \"kill -$s \\$\\$\" || exit 1; done;"
                          "kill -TERM $PPID; exit 5"),
              5);
    EXPECT_EQ(delivered, 1);
    EXPECT_EQ(run_command("kill -KILL $$"), -1);
    std::signal(SIGTERM, before);
}

} // namespace
