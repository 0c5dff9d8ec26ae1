// Replacing a template, and putting right what an interrupted save has left. Of a save, each system call in
// turn fails, moves half of its bytes, or is the moment at which the process dies, or the power: then the
// files that were not synced lose their content. The recovery meets every state of the files that an
// interruption may leave, and is cut itself before each of its changes.
#include "common/template_pair.h"

#include "faults.h"
#include "support.h"
#include "template_bytes.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

// Of this process: after so many more changes of directories and syncs all fail, as for one that has ended;
// and one of them that fails before.
int changes_left = -1, failing_change = -1;
bool hard_links = true, traced = false;

int change(long call, auto... arguments)
{
    const bool fails = failing_change == 0;
    failing_change -= failing_change >= 0 ? 1 : 0;
    if (fails || changes_left == 0) {
        errno = EIO;
        return -1;
    }
    changes_left -= changes_left > 0 ? 1 : 0;
    return static_cast<int>(syscall(call, arguments...));
}

} // namespace

// Nothing is really brought to the disk, in a traced process neither.
extern "C" int fsync(int fd)
{
    return traced ? static_cast<int>(syscall(SYS_fsync, fd)) : std::min(change(SYS_getpid), 0);
}
extern "C" int syncfs(int fd) noexcept
{
    return traced ? static_cast<int>(syscall(SYS_syncfs, fd)) : std::min(change(SYS_getpid), 0);
}
extern "C" int renameat(int from, const char *name, int to, const char *new_name) noexcept
{
    return change(SYS_renameat, from, name, to, new_name);
}
extern "C" int unlinkat(int directory, const char *name, int flags) noexcept
{
    return change(SYS_unlinkat, directory, name, flags);
}
extern "C" int linkat(int from, const char *name, int to, const char *new_name, int flags) noexcept
{
    if (hard_links)
        return change(SYS_linkat, from, name, to, new_name, flags);
    errno = EPERM;
    return -1;
}
extern "C" ssize_t sendfile(int to, int from, off_t *offset, std::size_t size) noexcept
{
    return change(SYS_sendfile, to, from, offset, changes_left == 1 ? size / 2 : size);
}

namespace {

namespace fs = std::filesystem;

struct stat status_of(const fs::path &file)
{
    struct stat status = {};
    stat(file.c_str(), &status);
    return status;
}

const std::vector<std::string> new_records = {"C:/boot/vmlinuz", "C:/boot/initrd.img", "D:\\EFI\\BOOT.EFI"};
const pair_bytes new_pair = pair_of(2, "C:/boot/pelva/bootfile.nam", new_records);

// The check values are not ours, and not ours to lose.
pair_bytes pair_of_old(std::size_t count)
{
    pair_bytes pair = pair_of(2, "C:/p/bootfile.nam", std::vector<std::string>(count, "C:/old"));
    std::fill(pair.chk.begin() + 1024, pair.chk.end(), 'v');
    return pair;
}

constexpr const char *not_ours[] = {"bootfile.nam.old", "bootfile.chk.old", "bootfile.chk.new"};

// The header goes out with a count that is too high, as when files turn out to have no short name.
bool save(const fs::path &directory)
{
    const auto pair = open_template_pair(directory, list_kind::files);
    if (pair->error || !write_template_headers(*pair, "C:/boot/pelva/", 5))
        return false;
    for (std::string record : new_records) {
        record.resize(file_record_size);
        (void)write_template_record(*pair, std::vector<std::uint8_t>(record.begin(), record.end()));
    }
    return replace_template(*pair);
}

// How many records the old pair has (0: there is none), and whether the file system knows hard links.
struct replacing : testing::TestWithParam<std::tuple<std::size_t, bool>> {
    // One save over an old pair with the planned fault; then what the next start does. False when the save
    // was over before.
    bool try_save(const planned_fault &plan, bool cut_power)
    {
        fs::remove_all(scratch_.path());
        fs::create_directory(scratch_.path());
        const auto [old_count, links] = GetParam();
        hard_links = links;
        const pair_bytes old_pair = old_count > 0 ? pair_of_old(old_count) : pair_bytes{};
        for (const char *copy : not_ours)
            scratch_.write(copy, new_pair.chk);
        if (old_count > 0)
            write_pair(scratch_, old_pair);
        std::set<ino_t> safe;
        for (const auto &file : fs::directory_iterator(scratch_.path()))
            safe.insert(status_of(file).st_ino);
        const auto work = [&] { return (traced = true) && save(scratch_.path()) ? 1 : 0; };
        faulty_run run = run_with_faults(work, {plan});
        const bool saved = run.survived && run.result == 1;
        EXPECT_FALSE(run.crashed);
        EXPECT_GE(run.synced.count(status_of(scratch_.path()).st_ino), saved ? 1U : 0U);

        run.synced.merge(safe);
        for (const auto &file : fs::directory_iterator(scratch_.path()))
            if (cut_power && !run.survived && !run.synced.contains(status_of(file).st_ino))
                fs::resize_file(file, 0);
        const testing::ScopedTrace place(__FILE__, __LINE__, plan.call);
        if (run.survived && plan.what == fault::fail) {
            EXPECT_EQ(read_pair(scratch_.path()), saved ? new_pair : old_pair);
        }
        recover_templates(scratch_.path());
        const pair_bytes now = read_pair(scratch_.path());
        EXPECT_TRUE(now == new_pair || (!saved && now == old_pair));
        for (const char *copy : not_ours)
            EXPECT_EQ(content_of(scratch_.path() / copy), new_pair.chk);
        // What a first save has begun is not removed as long as nothing is whole.
        if (old_count > 0 || now == new_pair) {
            EXPECT_EQ(interrupted_save(scratch_.path(), list_kind::files), std::vector<std::string>());
        }
        return !run.survived || run.calls >= plan.call;
    }

    ~replacing() override { hard_links = true; }

    scratch_directory scratch_;
};

TEST_P(replacing, every_call_fails_or_is_the_last)
{
    const std::tuple<fault, int, bool> faults[] = {
        {fault::fail, EIO, false}, {fault::fail_from_here, EIO, false}, {fault::die, 0, true},
        {fault::die, 0, false},    {fault::fail, EINTR, false},         {fault::cut_short, 0, false}};
    for (const auto &[what, error, cut_power] : faults) {
        int call = 1;
        while (try_save({call, what, error}, cut_power) && !HasFailure())
            ++call;
        EXPECT_GT(call, 20) << "fault " << static_cast<int>(what) << ", error " << error;
    }
}

INSTANTIATE_TEST_SUITE_P(old_pairs, replacing,
                         testing::Values(std::tuple{0U, true}, std::tuple{2U, false}, std::tuple{3U, true}));

TEST(template_pair, what_lies_in_the_way_is_not_followed)
{
    const scratch_directory scratch;
    const fs::path victim = scratch.write("victim", "untouched"), nam = scratch.write("bootfile.nam", "");
    fs::create_symlink(victim, scratch.path() / ".gtk-tarnel-bootfile.nam.new");
    chmod(nam.c_str(), 04640);
    ASSERT_TRUE(save(scratch.path()));
    EXPECT_EQ(fs::file_size(victim), 9U);
    EXPECT_EQ(status_of(nam).st_mode, static_cast<mode_t>(S_IFREG | 0640));
}

// --- What an interruption may leave. The pair in use, both .old, both .new or .next: each of the six files
// is absent, damaged (empty or cut short), or whole, of the old or of the new save.

enum class state { absent, damaged, old_one, new_one };
using states = std::array<state, 6>;

struct recovering : testing::Test {
    ~recovering() override { hard_links = true; }

    // Every other time the last two are those of a save over remains.
    std::string name(std::size_t file) const
    {
        const std::string suffixes[] = {"", ".old", next ? ".next" : ".new"};
        return (file < 2 ? "bootfile." : ".gtk-tarnel-bootfile.") + std::string(file % 2 ? "chk" : "nam") +
               suffixes[file / 2];
    }

    void lay_out(const states &files) const
    {
        for (const auto &file : fs::directory_iterator(scratch.path()))
            fs::remove(file);
        for (std::size_t i = 0; i < files.size(); ++i) {
            const pair_bytes &pair = files[i] == state::new_one ? new_pair : old_pair;
            const std::string &bytes = i % 2 ? pair.chk : pair.nam;
            if (files[i] != state::absent)
                scratch.write(name(i), files[i] == state::damaged ? bytes.substr(0, i % 3 * 500) : bytes);
        }
    }

    std::map<std::string, std::string> found() const
    {
        std::map<std::string, std::string> files;
        for (const auto &file : fs::directory_iterator(scratch.path()))
            files[file.path().filename()] = content_of(file);
        return files;
    }

    // Whether two files of the save are a pair: both under the same kind of name, or one of them in use.
    bool holds(const states &files, state save) const
    {
        for (std::size_t nam = 0; nam < 6; nam += 2)
            for (std::size_t chk = 1; chk < 6; chk += 2)
                if (files[nam] == save && files[chk] == save &&
                    (chk == nam + 1 || ((nam == 0 || chk == 1) && nam + chk < (next ? 4U : 6U))))
                    return true;
        return false;
    }

    // What must come of it, when it is not cut or at the first start that is not.
    void check(const states &files) const
    {
        const pair_bytes now = read_pair(scratch.path());
        const bool in_use = files[0] == files[1] && files[0] >= state::old_one;
        const bool old_whole = files[2] == files[3] && files[2] >= state::old_one;
        const state first = files[in_use ? 0 : 2];
        EXPECT_TRUE((now == old_pair && holds(files, state::old_one)) ||
                    (now == new_pair && holds(files, state::new_one)));
        if (in_use || old_whole) {
            EXPECT_EQ(now, first == state::old_one ? old_pair : new_pair);
        }
        EXPECT_EQ(found().size(), 2U);
    }

    // The recovery, whole or cut before each of its changes.
    void recover(const states &files, bool with_cuts)
    {
        const bool whole = holds(files, state::old_one) || holds(files, state::new_one);
        for (int cut = whole && with_cuts ? 0 : -1; !HasFailure(); ++cut) {
            lay_out(files);
            const auto before = whole ? std::map<std::string, std::string>() : found();
            changes_left = cut;
            recover_templates(scratch.path());
            const bool all = cut < 0 || changes_left > 0;
            changes_left = -1;
            if (!all)
                recover_templates(scratch.path());
            if (whole)
                check(files);
            EXPECT_TRUE(whole || found() == before);
            if (all)
                return;
        }
    }

    scratch_directory scratch;
    pair_bytes old_pair = pair_of_old(2);
    bool next = false;
};

TEST_F(recovering, brings_back_what_is_whole_and_else_removes_nothing)
{
    for (unsigned number = 0; number < 4096 && !HasFailure(); ++number) {
        const testing::ScopedTrace place(__FILE__, __LINE__, number);
        states files{};
        for (std::size_t i = 0; i < files.size(); ++i)
            files[i] = static_cast<state>(number >> 2 * i & 3);
        hard_links = std::popcount(number) % 2 == 0;
        next = std::popcount(number * 0x9E3779B9) % 2 == 0;
        recover(files, number % 31 == 0);
        // Where both saves have as many records, the headers do not tell what belongs together, but .old
        // does.
        old_pair = pair_of_old(new_records.size());
        if (files[2] == files[3] && files[2] >= state::old_one)
            recover(files, number % 31 == 0);
        old_pair = pair_of_old(2);
    }
}

// Every step of a save fails, and every one on the way back is the last. Where nothing is whole a save goes
// on, and what lies there goes only when its own pair is in use.
TEST_F(recovering, every_step_back_of_a_save_is_the_last)
{
    using enum state;
    for (const states &files : {states{}, states{old_one, old_one}, states{old_one, damaged},
                                states{damaged, absent, old_one, damaged, damaged, new_one}})
        for (int failing = 0, saved = 0; !saved && !HasFailure(); ++failing)
            for (int cut = failing + 1, all = 0; !all && !HasFailure(); ++cut) {
                const testing::ScopedTrace place(__FILE__, __LINE__, failing * 100 + cut);
                hard_links = cut % 2 == 0;
                lay_out(files);
                const auto before = found();
                changes_left = cut;
                failing_change = failing;
                saved = save(scratch.path()) && failing_change >= 0;
                all = changes_left > 0;
                EXPECT_TRUE(!all || saved || found() == before || read_pair(scratch.path()) == new_pair);
                changes_left = failing_change = -1;
                const auto after = found();
                recover_templates(scratch.path());
                const bool whole = read_pair(scratch.path()) == new_pair ||
                                   (files[1] == old_one && read_pair(scratch.path()) == old_pair);
                EXPECT_TRUE((whole && found().size() == 2) ||
                            (!saved && std::ranges::includes(after, before) && found() == after));
            }
}

} // namespace
