// Reading while every system call in turn fails or moves half of its bytes: what comes back is
// the truth or a declared failure, never half of it.
#include "faults.h"

#include "common/disk.h"
#include "common/fat.h"
#include "common/file_format.h"
#include "support.h"
#include "template_bytes.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

// Every call that `read` makes fails in every way. It answers with the truth or, in its failure, with
// nothing.
void expect_truth_or_nothing(const std::string &truth, const std::function<std::string()> &read)
{
    const auto work = [&] {
        const std::string answer = read();
        return answer == truth ? 0 : answer.empty() ? 1 : 2;
    };
    EXPECT_EQ(work(), 0) << truth; // and everything is loaded that the process loads once
    const std::pair<fault, int> faults[] = {
        {fault::fail, EIO}, {fault::fail_from_here, EIO}, {fault::cut_short, 0}, {fault::fail, EINTR}};
    for (const auto &[what, error] : faults) {
        int call = 1;
        for (faulty_run run; call == 1 || run.calls >= call - 1; ++call) {
            run = run_with_faults(work, {{call, what, error}});
            EXPECT_TRUE(run.survived && run.result < 2) << truth << ", call " << call << ", error " << error;
        }
        EXPECT_GT(call, 4) << truth << ": too few calls were seen";
    }
}

// Of a FAT volume, templates and two listed disks.
TEST(faulty_machine, names_templates_and_disks)
{
    const scratch_directory scratch;
    const replaced_host host(scratch.path());
    run_tool("cd " + scratch.write("dev/file", "").parent_path().string() +
             " && mkfs.fat -F 16 -C -s 1 sda1 8192 && mcopy -i sda1 file '::/a long name.txt'");
    std::string listed = "major minor  #blocks  name\n\n 8 0 16384 sda\n"; // takes several reads
    for (int i = 0; i < 500; ++i)
        listed += " 8 1 1024 sda1\n";
    scratch.write("proc/partitions", listed + " 8 16 16384 sdb\n");
    static const std::string file_names = "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVW"; // several reads
    std::vector<std::string> records;
    for (const char name : file_names)
        records.emplace_back(1, name);
    for (const auto &[file, pair] : {std::pair("bootfile", pair_of(2, "", records)),
                                     {"bootsect", pair_of(1, "", {"\x80", "\x81\x01\x02\x03\xFE"})}}) {
        scratch.write(file + std::string(".nam"), pair.nam);
        scratch.write(file + std::string(".chk"), pair.chk);
    }

    const auto name = [] { return get_sfn_path("sda1", "a long name.txt").value_or(""); };
    expect_truth_or_nothing("ALONGN~1.TXT", name);
    expect_truth_or_nothing("4261609985", [&] {
        std::uint32_t count = 0;
        const auto list = read_sector_list(scratch.path(), count);
        return !list ? "" : count == 2 ? std::to_string(sector_of(list[1])) : "other than two";
    });
    // Every record is passed on once at its place, or reported as unread.
    expect_truth_or_nothing(file_names, [&] {
        std::string seen;
        const auto on_record = [](const char *text, void *to) {
            return static_cast<std::string *>(to)->push_back(*text), 0;
        };
        const auto on_unread = [](std::uint32_t first, std::uint32_t last, void *to) {
            static_cast<std::string *>(to)->append(file_names, first, last - first + 1);
        };
        const int result = read_file_list(scratch.path(), nullptr, on_record, &seen, on_unread);
        return result == 0 && seen.empty() ? "no records" : seen;
    });
    expect_truth_or_nothing("/dev/sda/dev/sdb", [] {
        std::string devices;
        for (const std::string &device : get_device_from_proc())
            devices += device;
        return devices;
    });
}

} // namespace
