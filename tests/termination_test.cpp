// A signal in the middle of things: all is let go of, and nothing is saved or asked.
#include "termination.h"

#include "common/process.h"
#include "template_save.h"
#include "tree_support.h"

#include <csignal>
#include <gtest/gtest.h>

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

namespace fs = std::filesystem;

browsed_partition *browsed;

// What is open on a partition keeps it from being unmounted.
void check_at_exit()
{
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry, gone).string().starts_with(browsed->files.path().string()))
            _exit(1);
    }
}

gboolean mark_and_save(gpointer)
{
    calls_left = 500;
    toggle_iter(&browsed->app, browsed->store, browsed->root());
    const auto read = browsed->row("many")->children.size();
    EXPECT_TRUE(read > 0 && read < 1000);
    EXPECT_TRUE(browsed->row("next")->not_loaded);
    std::raise(SIGHUP); // changes nothing any more
    files_changed = 1;
    save_file_template(&browsed->app, browsed->store);
    EXPECT_EQ(files_changed, 1);
    EXPECT_TRUE(fs::is_empty(browsed->app.pelva_db_path));
    return FALSE;
}

TEST(termination, leaves_whatever_is_going_on)
{
    browsed_partition partition;
    browsed = &partition;
    for (int i = 0; i < 1000; i++)
        partition.files.write("many/" + std::to_string(i), "");
    partition.files.write("next/x", "");
    fs::create_directory(partition.app.pelva_db_path);
    // The child is the program, as far as its main loop and exit handler go.
    const auto program = [&partition] {
        partition.show();
        partition.loaded("");
        end_on_signals();
        std::atexit(check_at_exit);
        g_idle_add(mark_and_save, nullptr);
        gtk_main();
        std::exit(ending_status() + testing::Test::HasFailure());
    };
    EXPECT_EXIT(program(), testing::ExitedWithCode(128 + SIGTERM), "");
}

} // namespace
