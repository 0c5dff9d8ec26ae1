// Shell commands come to their end, and what they leave behind can be ended.
#include "common/host.h"

#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t delivered = 0;

TEST(host, commands_start_clean_and_outlive_what_the_terminal_sends)
{
    setpgid(0, 0); // the shell's parent leads the group that the terminal's signals go to
    for (const int number : {SIGHUP, SIGINT, SIGTERM})
        std::signal(number, [](int) { delivered = delivered + 1; });
    std::signal(SIGPIPE, SIG_IGN);
    const struct {
        const char *command;
        int status;
    } cases[] = {
        {"for s in HUP INT TERM; do kill -s $s -- -$PPID; done; exit 5", 5},
        {"[ $(grep -cE '^Sig(Ign|Blk):.*0000000$' /proc/self/status) = 2 ]", 0},
        {"read answer", 1},
        {"kill -KILL $$", -1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(run_command(c.command), c.status) << c.command;
    EXPECT_EQ(delivered, 3);
}

} // namespace
