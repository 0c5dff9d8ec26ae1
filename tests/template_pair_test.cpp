// Replacing a template. The system calls on the way are counted; each of them in turn fails, moves half of
// its bytes, or is the moment at which the process dies, or the power: then the files that were not synced
// lose their content. Afterwards the old or the new pair must be there, byte for byte, and nothing of ours
// beside it. The same faults then meet the recovery.
#include "common/template_pair.h"

#include "faults.h"
#include "support.h"
#include "template_bytes.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>

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
    // One save over an old pair with the planned faults; then what the next start does. False when the save
    // was over before the last of them.
    bool try_save(const std::vector<planned_fault> &plan, bool cut_power = false)
    {
        fs::remove_all(scratch_.path());
        fs::create_directory(scratch_.path());
        const auto [old_count, hard_links] = GetParam();
        old_pair = {};
        for (const char *copy : not_ours)
            scratch_.write(copy, new_pair.chk);
        if (old_count > 0) {
            old_pair = pair_of(2, "C:/p/bootfile.nam", std::vector<std::string>(old_count, "C:/old"));
            std::fill(old_pair.chk.begin() + 1024, old_pair.chk.end(), 'v'); // not ours, and not ours to lose
            write_pair(scratch_, old_pair);
        }
        std::set<ino_t> safe;
        for (const auto &file : fs::directory_iterator(scratch_.path()))
            safe.insert(status_of(file).st_ino);
        const auto work = [&] { return save(scratch_.path()) ? 1 : 0; };
        faulty_run run = run_with_faults(work, plan, !hard_links);
        const bool saved = run.survived && run.result == 1;
        EXPECT_FALSE(run.crashed);
        EXPECT_GE(run.synced.count(status_of(scratch_.path()).st_ino), saved ? 1U : 0U);

        run.synced.merge(safe);
        for (const auto &file : fs::directory_iterator(scratch_.path()))
            if (cut_power && !run.survived && !run.synced.contains(status_of(file).st_ino))
                fs::resize_file(file, 0);
        if (run.survived && plan.size() == 1 && plan[0].what == fault::fail) {
            EXPECT_EQ(read_pair(scratch_.path()), saved ? new_pair : old_pair) << "call " << plan[0].call;
        }
        const testing::ScopedTrace place(__FILE__, __LINE__, plan.front().call * 1000 + plan.back().call);
        recover_with_faults(saved);
        recover_templates(scratch_.path());
        expect_whole(scratch_.path(), saved);
        return !run.survived || run.calls >= plan.back().call;
    }

    void expect_whole(const fs::path &directory, bool saved) const
    {
        const pair_bytes now = read_pair(directory);
        const pair_bytes old_one = {old_pair.nam, old_pair.nam.empty() ? now.chk : old_pair.chk};
        EXPECT_EQ(now, !saved && now.nam == old_pair.nam ? old_one : new_pair);
        for (const char *copy : not_ours)
            EXPECT_EQ(content_of(directory / copy), new_pair.chk);
        EXPECT_LE(std::distance(fs::directory_iterator(directory), {}), 2 + std::ssize(not_ours));
    }

    // Every call of the recovery fails, is its last, or both a little later; the next start has no such bad
    // luck.
    void recover_with_faults(bool saved)
    {
        std::set<std::string> left;
        for (const auto &file : fs::directory_iterator(scratch_.path()))
            left.insert(file.path().filename().string() + content_of(file));
        if (!met_.insert(left).second)
            return;
        const scratch_directory copy;
        for (const auto &[what, later] : {std::pair{fault::die, 0}, {fault::fail, 1000}, {fault::fail, 3}})
            for (int call = 1, calls = 1; calls >= call - 1 && !HasFailure(); ++call) {
                fs::remove_all(copy.path());
                fs::copy(scratch_.path(), copy.path());
                const auto work = [&] { return recover_templates(copy.path()), 0; };
                calls = run_with_faults(work, {{call, what, EIO}, {call + later, fault::die, 0}}).calls;
                recover_templates(copy.path());
                expect_whole(copy.path(), saved);
            }
    }

    scratch_directory scratch_;
    pair_bytes old_pair;
    std::set<std::set<std::string>> met_; // what saves left, by names and contents
};

TEST_P(replacing, every_call_fails_or_is_the_last)
{
    const std::tuple<fault, int, bool> faults[] = {
        {fault::fail, EIO, false}, {fault::fail_from_here, EIO, false}, {fault::die, 0, true},
        {fault::die, 0, false},    {fault::fail, EINTR, false},         {fault::cut_short, 0, false}};
    for (const auto &[what, error, cut_power] : faults) {
        int call = 1;
        while (try_save({{call, what, error}}, cut_power) && !HasFailure())
            ++call;
        EXPECT_GT(call, 20) << "fault " << static_cast<int>(what) << ", error " << error;
    }
}

// While the new files are still being written any failure does no more than remove them.
TEST_P(replacing, every_step_back_fails_or_is_the_last)
{
    constexpr int first_replacing_call = 25;
    for (const auto &[second, error] : {std::pair{fault::fail, EIO}, {fault::die, 0}}) {
        int call = first_replacing_call;
        for (int ways = 1; ways > 0 && !HasFailure(); ++call)
            for (ways = 0; try_save({{call, fault::fail, EIO}, {call + ways + 1, second, error}}, true) &&
                           !HasFailure();)
                ++ways;
        EXPECT_GT(call, first_replacing_call + 4);
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

} // namespace
