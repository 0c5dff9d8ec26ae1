// Reading while every system call in turn fails or moves half of its bytes: what comes back is
// the truth or a declared failure, never half of it.
#include "faults.h"

#include "common/disk.h"
#include "common/fat.h"
#include "common/file_format.h"
#include "common/gpt.h"
#include "support.h"
#include "template_bytes.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

// The machine that is read: a GPT disk, a FAT volume, a template and two listed disks.
struct faulty_machine : testing::Test {
    faulty_machine()
    {
        const std::string dev = scratch.write("dev/file", "").parent_path();
        run_tool("cd " + dev +
                 "; truncate -s 16M sda; sgdisk -n 1:2048:+1M -t 1:0700 -n 2:0:+1M -t 2:ef00 sda;"
                 "mkfs.fat -F 16 -C -s 1 sda1 8192; mmd -i sda1 '::/Program Files';"
                 "mcopy -i sda1 file '::/Program Files/a long name.txt'");
        std::string listed = "major minor  #blocks  name\n\n 8 0 16384 sda\n"; // takes several reads
        for (int i = 0; i < 500; ++i)
            listed += " 8 1 1024 sda1\n";
        scratch.write("proc/partitions", listed + " 8 16 16384 sdb\n");
        const pair_bytes pair = pair_of(1, "C:/bootsect.nam", {{'\x80', 0, 0, 0, 0}, "\x81\x01\x02\x03\xFE"});
        scratch.write("bootsect.nam", pair.nam);
        scratch.write("bootsect.chk", pair.chk);
        std::vector<std::string> names;
        for (const char last : file_names)
            names.push_back({'C', ':', '/', last});
        const pair_bytes files = pair_of(2, "C:/bootfile.nam", names);
        scratch.write("bootfile.nam", files.nam);
        scratch.write("bootfile.chk", files.chk);
    }

    const std::string file_names = "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVW"; // several reads
    scratch_directory scratch;
    replaced_host host{scratch.path()};
};

constexpr int truth = 0, failure = 1, neither = 2;

int judge(bool is_truth, bool is_failure)
{
    return is_truth ? truth : is_failure ? failure : neither;
}

// `work` answers with one of the three; it must know the truth when nothing fails.
void expect_truth_or_failure(const std::string &name, const std::function<int()> &work, int fewest_calls)
{
    EXPECT_EQ(work(), truth) << name; // and everything is loaded that the process loads once
    const std::pair<fault, int> faults[] = {
        {fault::fail, EIO}, {fault::fail_from_here, EIO}, {fault::cut_short, 0}, {fault::fail, EINTR}};
    for (const auto &[what, error] : faults) {
        int call = 1;
        for (faulty_run run; call == 1 || run.calls >= call - 1; ++call) {
            run = run_with_faults(work, {{call, what, error}});
            EXPECT_TRUE(run.survived && run.result != neither)
                << name << ", call " << call << ", error " << error << (run.crashed ? ": crashed" : "");
        }
        EXPECT_GT(call, fewest_calls) << name;
    }
}

TEST_F(faulty_machine, tables_and_names)
{
    const auto gpt = [] {
        const auto numbers = readGpt("/dev/sda");
        return judge(numbers == std::vector<std::uint32_t>{1, 2}, numbers.empty());
    };
    expect_truth_or_failure("GPT", gpt, 6);
    const auto name = [] {
        const auto found = get_sfn_path("sda1", "Program Files\\a long name.txt");
        return judge(found == "PROGRA~1\\ALONGN~1.TXT", !found);
    };
    expect_truth_or_failure("name on FAT", name, 5);
    const auto sectors = [&] {
        std::uint32_t count = 0;
        const auto list = read_sector_list(scratch.path(), count);
        return judge(list && count == 2 && sector_of(list[1]) == 0xFE030201, !list);
    };
    expect_truth_or_failure("sector list", sectors, 8);
    // Every record is passed on once at its place, or reported as unread.
    const auto files = [&] {
        std::string seen;
        const auto on_record = [](const char *text, void *to) {
            return static_cast<std::string *>(to)->push_back(text[3]), 0;
        };
        const auto on_unread = [](std::uint32_t first, std::uint32_t last, void *to) {
            for (; first <= last; ++first)
                static_cast<std::string *>(to)->push_back(static_cast<char>('0' + first));
        };
        const int result = read_file_list(scratch.path(), nullptr, on_record, &seen, on_unread);
        return judge(seen == file_names, result < 0 && seen.empty());
    };
    expect_truth_or_failure("file list", files, 8);
    const auto disks = [] {
        const auto devices = get_device_from_proc();
        return judge(devices == std::vector<std::string>{"/dev/sda", "/dev/sdb"}, devices.empty());
    };
    expect_truth_or_failure("listed disks", disks, 4);
}

} // namespace
