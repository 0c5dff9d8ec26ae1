// A signal in the middle of things: all is let go of, and nothing is saved or asked.
#include "termination.h"

#include "common/process.h"
#include "gtk_support.h"
#include "template_save.h"
#include "tree_support.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;

static int calls_left = 0; // after so many status calls the signal comes, and the progress window is due

extern "C" int fstatat(int directory, const char *name, struct stat *status, int flags) noexcept
{
    if (calls_left && --calls_left == 0) {
        std::raise(SIGTERM);
        usleep(200'000);
    }
    return static_cast<int>(syscall(SYS_newfstatat, directory, name, status, flags));
}

namespace {

browsed_partition *browsed;

void expect(bool holds, int number)
{
    if (!holds)
        _exit(number);
}

// What is open on a partition keeps it from being unmounted.
void check_at_exit()
{
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        expect(!fs::read_symlink(entry, gone).string().starts_with(browsed->files.path().string()), 1);
    }
}

gboolean mark_while_reading(gpointer)
{
    calls_left = 500;
    toggle_iter(&browsed->app, browsed->store, browsed->root());
    const auto read = browsed->row("many")->children.size();
    expect(read > 0 && read < 1000, 2);
    expect(browsed->row("next")->not_loaded, 3);
    return FALSE;
}

gboolean save(gpointer)
{
    files_changed = 1;
    std::raise(SIGTERM);
    std::raise(SIGHUP); // changes nothing any more
    save_file_template(&browsed->app, browsed->store);
    expect(files_changed == 1 && fs::is_empty(browsed->host.path() / "boot"), 4);
    return FALSE;
}

// The child is the program, as far as its main loop and exit handler go.
[[noreturn]] void run_program(GSourceFunc work)
{
    while (!gtk_init_check(nullptr, nullptr)) // the display begins anew when its last client has gone
        usleep(10'000);
    browsed->show();
    browsed->loaded("");
    end_on_signals();
    std::atexit(check_at_exit);
    g_idle_add(work, nullptr);
    gtk_main();
    std::exit(ending_status());
}

TEST(termination, leaves_whatever_is_going_on)
{
    if (!g_getenv("DISPLAY"))
        GTEST_SKIP() << "no X display: run the tests under xvfb-run";
    browsed_partition partition;
    browsed = &partition;
    for (int i = 0; i < 1000; i++)
        partition.files.write("many/" + std::to_string(i), "");
    partition.files.write("next/x", "");
    fs::create_directory(partition.app.pelva_db_path);
    for (const GSourceFunc work : {mark_while_reading, save})
        EXPECT_EXIT(run_program(work), testing::ExitedWithCode(128 + SIGTERM), "");
}

} // namespace
