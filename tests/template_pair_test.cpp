// Replacing a template, and putting right what an interrupted save has left: the recovery meets every state
// of the files that an interruption may leave, and is cut itself before each of its changes; of a save and of
// a recovery each system call in turn fails.
#include "common/template_pair.h"

#include "faults.h"
#include "support.h"
#include "template_bytes.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <gtest/gtest.h>

namespace {

// After so many more changes of directories and syncs all fail, as for one that has ended;
// and one of them that fails before.
int changes_left = -1, failing_change = -1;
bool hard_links = true;

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

// Nothing is really brought to the disk: a busy one would take its time.
extern "C" int fsync(int)
{
    return std::min(change(SYS_getpid), 0);
}
extern "C" int syncfs(int) noexcept
{
    return std::min(change(SYS_getpid), 0);
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

const std::vector<std::string> new_records = {"C:/boot/vmlinuz", "C:/boot/initrd.img", "D:\\EFI\\BOOT.EFI"};
const pair_bytes new_pair = pair_of(2, "C:/boot/pelva/bootfile.nam", new_records);

// The check values are not ours, and not ours to lose.
pair_bytes pair_of_old(std::size_t count)
{
    pair_bytes pair = pair_of(2, "C:/p/bootfile.nam", std::vector<std::string>(count, "C:/old"));
    std::fill(pair.chk.begin() + 1024, pair.chk.end(), 'v');
    return pair;
}

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

// What an interruption may leave. The pair in use, both .old, both .new or .next: each of the six files
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
        scratch.write("bootfile.nam.old", "the administrator's");
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
        EXPECT_EQ(files.erase("bootfile.nam.old"), 1U);
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

// Also what no library of ours calls by name. A failure leaves a save undone and a recovery to be tried
// again.
TEST_F(recovering, every_call_fails)
{
    using enum state;
    for (const auto &[saves, what, error] :
         {std::tuple{true, fault::fail, EIO}, {true, fault::cut_short, 0}, {false, fault::fail, EIO}}) {
        const states files = saves ? states{old_one, old_one} : states{new_one, old_one, old_one, old_one};
        const auto work = [&, save_it = saves] {
            return save_it ? save(scratch.path()) : (recover_templates(scratch.path()), 0);
        };
        int call = 1;
        for (int calls = 1; calls >= call - 1 && !HasFailure(); ++call) {
            const testing::ScopedTrace place(__FILE__, __LINE__, call);
            lay_out(files);
            const faulty_run run = run_with_faults(work, {{call, what, error}});
            calls = run.calls;
            const pair_bytes &wanted = run.result == 1 ? new_pair : old_pair;
            EXPECT_TRUE(run.survived && (!saves || read_pair(scratch.path()) == wanted));
            recover_templates(scratch.path());
            EXPECT_EQ(read_pair(scratch.path()), wanted);
            EXPECT_EQ(found().size(), 2U);
        }
        EXPECT_GT(call, 30);
    }
}

TEST_F(recovering, what_lies_in_the_way_is_not_followed_and_told)
{
    lay_out({state::old_one, state::old_one});
    const fs::path victim = scratch.write("victim", "untouched"), nam = scratch.path() / name(0),
                   way = scratch.path() / name(5);
    fs::create_symlink(victim, scratch.path() / name(4));
    fs::permissions(nam, static_cast<fs::perms>(04640));
    fs::create_directory(way);
    EXPECT_TRUE(open_template_pair(scratch.path(), list_kind::files)->interrupted);
    EXPECT_EQ(interrupted_save(scratch.path(), list_kind::files),
              std::vector<std::string>({name(5), name(4)}));
    fs::remove(way);
    ASSERT_TRUE(save(scratch.path()));
    EXPECT_EQ(content_of(victim), "untouched");
    EXPECT_EQ(fs::status(nam).permissions(), static_cast<fs::perms>(0640));
    EXPECT_EQ(interrupted_save(scratch.path(), list_kind::files), std::vector<std::string>());
}

} // namespace
