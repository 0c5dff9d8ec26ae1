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

enum class fault { none, fail, fail_from_here, die, cut_power };

struct {
    bool armed = false;
    int calls = 0; // counted while armed
    std::array<std::pair<int, fault>, 2> plan = {};
    bool hard_links = true;
    std::filesystem::path directory = {};
    std::set<ino_t> synced = {};
} faults;

// Whether the call that asks is to fail; does not return when it is the last one.
bool strikes()
{
    faults.calls += faults.armed ? 1 : 0;
    for (const auto &[call, what] : faults.plan) {
        if (!faults.armed ||
            (faults.calls != call && !(faults.calls > call && what == fault::fail_from_here)))
            continue;
        if (what == fault::fail || what == fault::fail_from_here)
            return (errno = EIO);
        if (what == fault::none)
            continue;
        faults.armed = false;
        struct stat status {};
        for (const auto &file : std::filesystem::directory_iterator(faults.directory))
            if (what == fault::cut_power && stat(file.path().c_str(), &status) == 0 &&
                !faults.synced.contains(status.st_ino))
                std::filesystem::resize_file(file.path(), 0);
        _exit(0);
    }
    return false;
}

} // namespace

#define REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

extern "C" {
std::size_t fwrite(const void *data, std::size_t size, std::size_t count, std::FILE *stream)
{
    return strikes() ? 0 : REAL(fwrite)(data, size, count, stream);
}
int fflush(std::FILE *stream)
{
    return strikes() ? EOF : REAL(fflush)(stream);
}
int fsync(int fd)
{
    struct stat status {};
    if (strikes() || fstat(fd, &status) != 0)
        return -1;
    faults.synced.insert(status.st_ino);
    return 0;
}
std::FILE *fdopen(int fd, const char *mode) noexcept
{
    return strikes() ? nullptr : REAL(fdopen)(fd, mode);
}
int linkat(int from, const char *name, int to, const char *second, int flags) noexcept
{
    if (strikes() || !faults.hard_links)
        return errno = EPERM, -1;
    return REAL(linkat)(from, name, to, second, flags);
}
ssize_t sendfile(int to, int from, off_t *offset, std::size_t count) noexcept
{
    return strikes() ? -1 : REAL(sendfile)(to, from, offset, count);
}
int renameat(int from, const char *name, int to, const char *other) noexcept
{
    return strikes() ? -1 : REAL(renameat)(from, name, to, other);
}
int unlinkat(int directory, const char *name, int flags) noexcept
{
    return strikes() ? -1 : REAL(unlinkat)(directory, name, flags);
}
}

namespace {

const std::vector<std::string> new_records = {"C:/boot/vmlinuz", "C:/boot/initrd.img",
                                              "D:\\EFI\\BOOTX64.EFI"};
const pair_bytes new_pair = pair_of(2, "C:/boot/pelva/bootfile.nam", new_records);

// The header goes out with a count that is too high, as when files turn out to have no short name.
bool save(const std::string &directory, std::size_t repeat = 1)
{
    auto pair = open_template_pair(directory, list_kind::files);
    if (!pair || !write_template_headers(*pair, "C:/boot/pelva/", 5))
        return false;
    for (std::size_t i = 0; i < repeat; ++i)
        for (std::string record : new_records) {
            record.resize(file_record_size);
            const std::vector<std::uint8_t> bytes(record.begin(), record.end());
            (void)write_template_record(*pair, bytes);
        }
    return replace_template(std::move(pair));
}

struct outcome {
    bool finished, saved, reached;
};

// Saves in a child process under the plan of `faults`.
outcome save_in_child(int last_planned, std::size_t repeat = 1)
{
    const pid_t child = fork();
    if (child == 0) {
        faults.armed = true;
        const bool saved = save(faults.directory, repeat);
        faults.armed = false;
        _exit(1 | (saved ? 2 : 0) | (faults.calls >= last_planned ? 4 : 0));
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    const int bits = WEXITSTATUS(status);
    return {(bits & 1) != 0, (bits & 2) != 0, bits == 0 || (bits & 4) != 0};
}

pair_bytes read_pair(const std::filesystem::path &directory)
{
    return {read_file(directory / "bootfile.nam"), read_file(directory / "bootfile.chk")};
}

class replacing : public testing::TestWithParam<std::tuple<std::size_t, bool>> {
protected:
    replacing()
    {
        old_pair_ = pair_of(2, "C:/p/bootfile.nam", std::vector<std::string>(old_count_, "C:/old"));
        // What a check value should be is not ours to lose.
        std::fill(old_pair_.chk.begin() + 1024, old_pair_.chk.end(), 'v');
    }

    // One save over the old pair with the planned faults. False when the save ended before them.
    bool try_save(std::pair<int, fault> first, std::pair<int, fault> second = {0, fault::none})
    {
        std::filesystem::remove_all(scratch_.path());
        std::filesystem::create_directory(scratch_.path());
        faults = {
            .plan = {first, second}, .hard_links = std::get<1>(GetParam()), .directory = scratch_.path()};
        if (old_count_ > 0) {
            struct stat status {};
            for (const auto &[name, bytes] :
                 {std::pair{"bootfile.nam", old_pair_.nam}, {"bootfile.chk", old_pair_.chk}})
                if (stat(scratch_.write(name, bytes).c_str(), &status) == 0)
                    faults.synced.insert(status.st_ino);
        }
        const outcome result = save_in_child(std::max(first.first, second.first));
        const pair_bytes old_pair = old_count_ > 0 ? old_pair_ : pair_bytes{};
        const bool single_failure = first.second == fault::fail && second.second == fault::none;
        if (result.finished && single_failure) {
            EXPECT_EQ(read_pair(scratch_.path()), result.saved ? new_pair : old_pair);
        }
        recover_templates(scratch_.path());
        const pair_bytes now = read_pair(scratch_.path());
        EXPECT_TRUE(now == new_pair || (now == old_pair && !result.saved) ||
                    (old_count_ == 0 && now.nam.empty()));
        EXPECT_LE(std::distance(std::filesystem::directory_iterator(scratch_.path()), {}), 2);
        return result.reached;
    }

    scratch_directory scratch_;
    std::size_t old_count_ = std::get<0>(GetParam());
    pair_bytes old_pair_;
};

TEST_P(replacing, every_call_fails_or_is_the_last)
{
    for (const fault what : {fault::fail, fault::fail_from_here, fault::die, fault::cut_power}) {
        int call = 1;
        while (try_save({call, what}) && !HasFailure())
            ++call;
        EXPECT_GT(call, 20);
        EXPECT_FALSE(HasFailure()) << "fault " << static_cast<int>(what) << " at call " << call;
    }
}

TEST_P(replacing, every_way_back_fails_or_is_cut_short)
{
    for (const fault second : {fault::fail, fault::cut_power}) {
        int call = 1;
        for (int ways = 1; ways > 0 && !HasFailure(); ++call)
            for (ways = 0; try_save({call, fault::fail}, {call + ways + 1, second}) && !HasFailure();)
                ++ways;
        EXPECT_GT(call, 20);
    }
}

INSTANTIATE_TEST_SUITE_P(old_pairs, replacing,
                         testing::Combine(testing::Values(0U, 2U, 3U), testing::Bool()));

// The kernel itself refuses bytes, at every place that matters, also in the middle of a record.
TEST(template_pair, the_disk_is_full)
{
    const scratch_directory scratch;
    faults = {.directory = scratch.path()};
    ASSERT_TRUE(save(scratch.path()));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit unlimited{};
    getrlimit(RLIMIT_FSIZE, &unlimited);
    for (const rlim_t bytes : {0U, 1U, 1023U, 1024U, 1100U, 4096U, 10000U, 1024U + 300U * 256U - 1U}) {
        const rlimit limit{bytes, unlimited.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_FALSE(save_in_child(0, 100).saved) << bytes;
        setrlimit(RLIMIT_FSIZE, &unlimited);
        EXPECT_EQ(read_pair(scratch.path()), new_pair) << bytes;
    }
    EXPECT_TRUE(save_in_child(0, 100).saved);
}

TEST(template_pair, what_lies_in_the_way_is_not_followed)
{
    const scratch_directory scratch;
    faults = {.directory = scratch.path()};
    const auto victim = scratch.write("victim", "untouched");
    std::filesystem::create_symlink(victim, scratch.path() / "bootfile.nam.new");
    std::filesystem::create_hard_link(victim, scratch.path() / "bootfile.chk.new");
    chmod(scratch.write("bootfile.nam", "").c_str(), 04640);
    ASSERT_TRUE(save(scratch.path()));
    EXPECT_EQ(read_file(victim), "untouched");
    struct stat status {};
    EXPECT_TRUE(stat((scratch.path() / "bootfile.nam").c_str(), &status) == 0 &&
                status.st_mode == (S_IFREG | 0640));
    EXPECT_TRUE(stat((scratch.path() / "bootfile.chk").c_str(), &status) == 0 &&
                status.st_mode == (S_IFREG | 0644));

    std::filesystem::create_directory(scratch.path() / "bootfile.chk.new");
    captured_trace trace;
    EXPECT_FALSE(save(scratch.path()));
    EXPECT_NE(trace.messages().find("Cannot open file for writing: " + scratch.path().string() +
                                    "/bootfile.chk\n* Failed"),
              std::string::npos);
    EXPECT_EQ(read_pair(scratch.path()), new_pair);
}

} // namespace
