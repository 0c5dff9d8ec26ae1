// The command that prints templates, as it was built, and with it the readers of the format: whole, damaged
// and hostile pairs, and disks that fail.
#include "common/disk.h"
#include "common/file_format.h"
#include "faults.h"
#include "template_bytes.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

struct tarnel_list : testing::Test {
    // What goes to standard error, to standard output, and the exit status.
    std::string list(const std::string &arguments) const
    {
        return run_tool("cd " + directory.path().string() + " && LC_ALL=C PELVADB=. " TARNEL_LIST " " +
                        arguments + "; echo $?");
    }

    const scratch_directory directory;
};

TEST_F(tarnel_list, prints_any_name_on_one_line_and_as_it_is_with_null)
{
    // NOLINTNEXTLINE: a hostile name
    const std::string hostile = "C:/a\nb\xff<0x<U+\u202e", longest(256, 'n'), zero(1, '\0');
    write_pair(directory, pair_of(2, "", {hostile, "C:/\u042f\\x", "K:\\\x80\x01\xFC", longest}));
    write_pair(directory, pair_of(1, "", {"\x80", "\x81\x01\x02\x03\xFE"}), "bootsect");
    EXPECT_EQ(list(directory.path()), "C:/a<U+000A>b<0xFF><U+003C>0x<U+003C>U+<U+202E>\nC:/\u042f\\x\n"
                                      "K:\\\u0410<U+0001>\u2116\n" +
                                          longest + "\n0x80 0\n0x81 4261609985\n0\n");
    EXPECT_EQ(list("--null"), hostile + zero + "C:/\u042f\\x" + zero + "K:\\\x80\x01\xFC" + zero + longest +
                                  zero + "0x80 0" + zero + "0x81 4261609985" + zero + "0\n");
}

TEST_F(tarnel_list, tells_pairs_that_are_missing_or_not_whole)
{
    const pair_bytes files = pair_of(2, "", {"C:/a", "C:/b"}),
                     sectors = pair_of(1, "", {"\x80\x01", "\x81\x02"});
    const auto claiming = [](std::string file) { return file.replace(0x110, 4, "\xFF\xFF\xFF\xFF"); };
    const std::string broken = "tarnel-list: The file template in . is not whole\n",
                      broken_sectors = "tarnel-list: The sector template in . is not whole\n",
                      end = "0x80 1\n0x81 2\n1\n";
    const std::tuple<pair_bytes, pair_bytes, std::string> cases[] = {
        {{files.nam + "x", files.chk}, sectors, broken + "C:/a\nC:/b\n" + end},
        {{files.nam, files.chk.substr(0, 1028)}, sectors, broken + "C:/a\nC:/b\n" + end},
        {{files.nam.substr(0, 1535), files.chk}, sectors, broken + "C:/a\n" + end},
        {{files.nam.substr(0, 1023), files.chk}, sectors, broken + end},
        {{files.nam, files.chk.substr(0, 1023)}, sectors, broken + end},
        {{claiming(files.nam), claiming(files.chk)}, sectors, broken + "C:/a\nC:/b\n" + end},
        {{files.chk, files.nam}, sectors, broken + end},
        {files, {sectors.nam.substr(0, 1033), sectors.chk}, broken_sectors + "C:/a\nC:/b\n1\n"},
        {files, {claiming(sectors.nam), claiming(sectors.chk)}, broken_sectors + "C:/a\nC:/b\n1\n"},
    };
    for (const auto &[saved_files, saved_sectors, expected] : cases) {
        write_pair(directory, saved_files);
        write_pair(directory, saved_sectors, "bootsect");
        EXPECT_EQ(list(""), expected);
    }
    run_tool("cd " + directory.path().string() + " && rm boot* && mkfifo bootsect.nam");
    EXPECT_EQ(list(""), "tarnel-list: There is no file template in .\n"
                        "tarnel-list: Cannot read ./bootsect.nam: it is no regular file\n" +
                            broken_sectors + "1\n");
    for (const char *wrong : {"a b", "''"})
        EXPECT_EQ(list(wrong), "Usage: tarnel-list [--check] [--null] [DIRECTORY]\n2\n");
}

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

TEST_F(tarnel_list, what_cannot_be_read_is_never_taken_for_the_truth)
{
    static const std::string file_names = "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVW"; // several reads
    std::vector<std::string> records;
    for (const char name : file_names)
        records.emplace_back(1, name);
    write_pair(directory, pair_of(2, "", records));
    write_pair(directory, pair_of(1, "", {"\x80", "\x81\x01\x02\x03\xFE"}), "bootsect");
    const replaced_host host(directory.path());
    std::string listed = "major minor  #blocks  name\n\n 8 0 16384 sda\n"; // several reads
    for (int i = 0; i < 500; ++i)
        listed += " 8 1 1024 sda1\n";
    directory.write("proc/partitions", listed + " 8 16 16384 sdb\n");
    expect_truth_or_nothing("{ \"/dev/sda\", \"/dev/sdb\" }", [] {
        const auto devices = get_device_from_proc();
        return devices.empty() ? "" : testing::PrintToString(devices);
    });
    expect_truth_or_nothing("4261609985", [&] {
        std::uint32_t count = 0;
        const auto list = read_sector_list(directory.path(), count);
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
        const int result = read_file_list(directory.path(), nullptr, on_record, &seen, on_unread);
        return result == 0 && seen.empty() ? "no records" : seen;
    });
}

} // namespace
