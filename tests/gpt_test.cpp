// The GPT reader, on tables written by sgdisk and on damaged ones.
#include "common/gpt.h"
#include "support.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using numbers = std::vector<std::uint32_t>;

class gpt : public testing::Test {
protected:
    // Linux, Basic Data and EFI System entries at positions 1, 2 and 3.
    void make_disk(const std::string &options = "") const
    {
        run_tool("rm -f " + image + "; truncate -s 16M " + image + " && sgdisk " + options +
                 " -n 1:0:+1M -t 1:8300 -n 2:0:+1M -t 2:0700 -n 3:0:+1M -t 3:ef00 " + image);
    }

    void overwrite(std::streamoff offset, const std::string &bytes) const
    {
        std::fstream(image, std::ios::binary | std::ios::in | std::ios::out).seekp(offset) << bytes;
    }

    scratch_directory directory;
    std::string image = directory.path() / "disk";
};

TEST_F(gpt, lists_the_supported_entries_by_position)
{
    make_disk();
    captured_trace trace;
    EXPECT_EQ(readGpt(image), (numbers{2, 3}));
    const std::string found = "Supported gpt partition found: " + image;
    EXPECT_EQ(trace.messages(), "***Start***\n" + found + "2\n" + found + "3\n***End***\n");
    std::filesystem::resize_file(image, 2 * 512 + 128 * 128);
    EXPECT_EQ(readGpt(image), (numbers{2, 3})) << "nothing beyond the entries is read";

    make_disk("-j 64 -n 7:0:+1M -t 7:0700 -n 128:0:+1M -t 128:ef00");
    EXPECT_EQ(readGpt(image), (numbers{2, 3, 7, 128})) << "entries moved to LBA 64";
    make_disk("-S 4096 -n 4096:0:+1M -t 4096:0700");
    EXPECT_EQ(readGpt(image), (numbers{2, 3, 4096}));
}

TEST_F(gpt, damaged_tables_are_empty)
{
    const std::uintmax_t whole = 16 << 20, entries_end = 2 * 512 + 128 * 128;
    const std::string no_header = "Cannot read data from %Cannot read gpt header\n";
    const std::string no_entries = "Cannot read gpt partititons entries\n";
    struct {
        std::uintmax_t size; // of the image
        std::streamoff offset;
        std::string bytes;
        std::string trace; // after the start; the image's name for the %
    } const cases[] = {
        {whole, 512 + 7, "\xD4", ""},                      // signature
        {whole, 512 + 84, {"\0\1\0\0", 4}, ""},            // entries of 256 bytes
        {whole, 512 + 80, {"\0\0\0\0", 4}, "***End***\n"}, // no entries
        {whole, 512 + 80, {"\1\x10\0\0", 4}, no_entries},  // 4,097
        {whole, 512 + 80, "\xff\xff\xff\xff", no_entries}, // 2^32 - 1
        {whole, 512 + 72, {"\0\0\1\0\0\0\0\0", 8}, "Cannot read data from %" + no_entries},
        {whole, 512 + 72, {"\1\0\0\0\0\0\0\x80", 8}, "Cannot seek to position %\n" + no_entries},
        {entries_end - 1, 512, "E", "Cannot read data from %" + no_entries},
        {1023, 512, "E", no_header},
        {0, 0, "", no_header},
    };
    make_disk();
    const std::string sound = image;
    image += "-damaged";
    for (const auto &c : cases) {
        std::filesystem::copy_file(sound, image, std::filesystem::copy_options::overwrite_existing);
        overwrite(c.offset, c.bytes);
        std::filesystem::resize_file(image, c.size);
        captured_trace trace;
        EXPECT_THAT(readGpt(image), IsEmpty()) << c.trace;
        std::string expected = "***Start***\n" + c.trace;
        if (const auto mark = expected.find('%'); mark != std::string::npos)
            expected.replace(mark, 1, image);
        EXPECT_EQ(trace.messages(), expected);
    }
    captured_trace trace;
    EXPECT_THAT(readGpt("/no/such"), IsEmpty());
    EXPECT_THAT(trace.messages(), HasSubstr("Cannot open device file /no/such\nCannot read gpt header\n"));
}

} // namespace
