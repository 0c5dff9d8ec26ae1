// Replacing a template. The C library's calls on the way are counted; each of them in turn fails, or is the
// moment at which the process dies, or the power: then the files that were not synced lose their content.
// Afterwards the old or the new pair must be there, byte for byte, and nothing beside it.
#include "common/template_pair.h"

#include "support.h"
#include "template_bytes.h"

#include <csignal>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;

enum class fault { none, fail, fail_from_here, die, cut_power };

struct {
    std::array<std::pair<int, fault>, 2> plan = {}; // at which calls
    bool hard_links = true;
    fs::path directory = {};
    bool armed = false;
    int calls = 0; // while armed
    std::set<ino_t> synced = {};
} faults;

struct stat status_of(const fs::path &file)
{
    struct stat status {};
    stat(file.c_str(), &status);
    return status;
}

// Whether the call that asks is to fail; does not return when it is the last one.
bool strikes()
{
    faults.calls += faults.armed ? 1 : 0;
    for (const auto &[call, what] : faults.plan) {
        const bool now = faults.calls == call || (faults.calls > call && what == fault::fail_from_here);
        if (!faults.armed || !now || what == fault::none)
            continue;
        if (what == fault::fail || what == fault::fail_from_here)
            return (errno = EIO);
        faults.armed = false;
        for (const auto &file : fs::directory_iterator(faults.directory))
            if (what == fault::cut_power && !faults.synced.contains(status_of(file).st_ino))
                fs::resize_file(file, 0);
        _exit(0);
    }
    return false;
}

} // namespace

// A function of the C library that fails when its time has come.
#define FAILING(result, name, parameters, arguments, failure)                            \
    extern "C" result name parameters                                                    \
    {                                                                                    \
        auto *const real = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name)); \
        return strikes() ? (failure) : real arguments;                                   \
    }
FAILING(std::size_t, fwrite, (const void *data, std::size_t size, std::size_t count, FILE *stream),
        (data, size, count, stream), 0)
FAILING(int, fflush, (FILE * stream), (stream), EOF)
FAILING(FILE *, fdopen, (int fd, const char *mode) noexcept, (fd, mode), nullptr)
FAILING(ssize_t, sendfile, (int to, int from, off_t *offset, std::size_t count) noexcept,
        (to, from, offset, count), -1)
FAILING(int, unlinkat, (int directory, const char *name, int flags) noexcept, (directory, name, flags), -1)
FAILING(int, renameat, (int from, const char *name, int to, const char *other) noexcept,
        (from, name, to, other), -1)
FAILING(int, linkat, (int from, const char *name, int to, const char *other, int flags) noexcept,
        (from, name, to, faults.hard_links ? other : "no/hard/links", flags), -1)

extern "C" int fsync(int fd)
{
    if (strikes())
        return -1;
    faults.synced.insert(status_of("/proc/self/fd/" + std::to_string(fd)).st_ino);
    return 0;
}

namespace {

const std::vector<std::string> new_records = {"C:/boot/vmlinuz", "C:/boot/initrd.img", "D:\\EFI\\BOOT.EFI"};
const pair_bytes new_pair = pair_of(2, "C:/boot/pelva/bootfile.nam", new_records);

// The header goes out with a count that is too high, as when files turn out to have no short name.
bool save(int times = 1)
{
    auto pair = open_template_pair(faults.directory, list_kind::files);
    if (!pair || !write_template_headers(*pair, "C:/boot/pelva/", 5))
        return false;
    for (int i = 0; i < times; ++i)
        for (std::string record : new_records) {
            record.resize(file_record_size);
            (void)write_template_record(*pair, std::vector<std::uint8_t>(record.begin(), record.end()));
        }
    // What was not synced was not saved, whatever it claims.
    return replace_template(std::move(pair)) && faults.synced.contains(status_of(faults.directory).st_ino);
}

class replacing : public testing::TestWithParam<std::tuple<std::size_t, bool>> {
protected:
    // One save, in a child process, over an old pair with the planned faults; then what the next start does.
    // False when the save was over before the last of them.
    bool try_save(std::pair<int, fault> first, std::pair<int, fault> second = {0, fault::none})
    {
        fs::remove_all(scratch_.path());
        fs::create_directory(scratch_.path());
        const auto [old_count, hard_links] = GetParam();
        faults = {.plan = {first, second}, .hard_links = hard_links, .directory = scratch_.path()};
        pair_bytes old_pair;
        if (old_count > 0) {
            old_pair = pair_of(2, "C:/p/bootfile.nam", std::vector<std::string>(old_count, "C:/old"));
            std::fill(old_pair.chk.begin() + 1024, old_pair.chk.end(), 'v'); // not ours, and not ours to lose
            faults.synced = {status_of(scratch_.write("bootfile.nam", old_pair.nam)).st_ino,
                             status_of(scratch_.write("bootfile.chk", old_pair.chk)).st_ino};
        }
        const pid_t child = fork();
        if (child == 0) {
            faults.armed = true;
            const bool saved = save();
            _exit(1 | (saved ? 2 : 0) | (faults.calls >= std::max(first.first, second.first) ? 4 : 0));
        }
        int status = 0;
        EXPECT_TRUE(waitpid(child, &status, 0) == child && WIFEXITED(status));
        const int exit = WEXITSTATUS(status);
        const bool survived = exit & 1, saved = exit & 2, reached = !survived || exit & 4;

        if (survived && first.second == fault::fail && second.second == fault::none) {
            EXPECT_EQ(read_pair(scratch_.path()), saved ? new_pair : old_pair) << "call " << first.first;
        }
        recover_templates(scratch_.path());
        const pair_bytes now = read_pair(scratch_.path());
        EXPECT_TRUE(now == new_pair ||
                    (!saved && now.nam == old_pair.nam && (now.chk == old_pair.chk || old_count == 0)))
            << "calls " << first.first << " and " << second.first;
        EXPECT_LE(std::distance(fs::directory_iterator(scratch_.path()), {}), 2);
        return reached;
    }

    scratch_directory scratch_;
};

TEST_P(replacing, every_call_fails_or_is_the_last)
{
    for (const fault what : {fault::fail, fault::fail_from_here, fault::die, fault::cut_power}) {
        int call = 1;
        while (try_save({call, what}) && !HasFailure())
            ++call;
        EXPECT_GT(call, 20) << "fault " << static_cast<int>(what);
    }
}

INSTANTIATE_TEST_SUITE_P(old_pairs, replacing, testing::Combine(testing::Values(0, 2, 3), testing::Bool()));

class taking_back : public replacing {};

// Before its 18th call a save is still writing the new files, and any failure does no more than remove them.
TEST_P(taking_back, every_step_fails_or_is_the_last)
{
    for (const fault second : {fault::fail, fault::cut_power}) {
        int call = 18;
        for (int ways = 1; ways > 0 && !HasFailure(); ++call)
            for (ways = 0; try_save({call, fault::fail}, {call + ways + 1, second}) && !HasFailure();)
                ++ways;
        EXPECT_GT(call, 22);
    }
}

INSTANTIATE_TEST_SUITE_P(old_pairs, taking_back,
                         testing::Values(std::tuple{2U, false}, std::tuple{3U, true}));

// The kernel itself refuses bytes, at every place that matters, also in the middle of a record.
TEST(template_pair, the_disk_is_full)
{
    const scratch_directory scratch;
    faults = {.directory = scratch.path()};
    ASSERT_TRUE(save());
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit unlimited{};
    getrlimit(RLIMIT_FSIZE, &unlimited);
    for (const rlim_t bytes : {0U, 1U, 1023U, 1024U, 1100U, 4096U, 10000U, 1024U + 300U * 256U - 1U}) {
        const rlimit limit{bytes, unlimited.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        const bool saved = save(100);
        setrlimit(RLIMIT_FSIZE, &unlimited);
        EXPECT_TRUE(!saved && read_pair(scratch.path()) == new_pair) << bytes;
    }
    EXPECT_TRUE(save(100));
}

TEST(template_pair, what_lies_in_the_way_is_not_followed)
{
    const scratch_directory scratch;
    faults = {.directory = scratch.path()};
    const fs::path victim = scratch.write("victim", "untouched"), nam = scratch.write("bootfile.nam", "");
    fs::create_symlink(victim, scratch.path() / "bootfile.nam.new");
    chmod(nam.c_str(), 04640);
    ASSERT_TRUE(save());
    EXPECT_EQ(fs::file_size(victim), 9U);
    EXPECT_EQ(status_of(nam).st_mode, static_cast<mode_t>(S_IFREG | 0640));

    fs::create_directory(scratch.path() / "bootfile.chk.new");
    captured_trace trace;
    EXPECT_FALSE(save());
    EXPECT_NE(trace.messages().find("writing: " + scratch.path().string() + "/bootfile.chk\n"),
              std::string::npos);
    EXPECT_EQ(read_pair(scratch.path()), new_pair);
}

} // namespace
