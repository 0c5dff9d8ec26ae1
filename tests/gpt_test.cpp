// The GPT reader, on tables written by sgdisk and on damaged ones.
#include "common/gpt.h"
#include "support.h"

#include <gtest/gtest.h>

namespace {

using numbers = std::vector<std::uint32_t>;

struct gpt : testing::Test {
    // Linux, Basic Data and EFI System entries at positions 1, 2 and 3.
    void make_disk(const std::string &options = "") const
    {
        run_tool("rm -f " + image + "; truncate -s 16M " + image + " && sgdisk " + options +
                 " -n 1:0:+1M -t 1:8300 -n 2:0:+1M -t 2:0700 -n 3:0:+1M -t 3:ef00 " + image);
    }

    const scratch_directory directory;
    const std::string image = directory.path() / "disk";
};

TEST_F(gpt, lists_the_supported_entries_by_position)
{
    make_disk();
    EXPECT_EQ(readGpt(image), (numbers{2, 3}));
    std::filesystem::resize_file(image, 2 * 512 + 128 * 128);
    EXPECT_EQ(readGpt(image), (numbers{2, 3})) << "nothing beyond the entries is read";

    make_disk("-j 64 -S 4096 -n 4096:0:+1M -t 4096:0700"); // entries moved to LBA 64
    EXPECT_EQ(readGpt(image), (numbers{2, 3, 4096}));
}

TEST_F(gpt, damaged_tables_are_empty)
{
    const std::uintmax_t whole = 2 * 512 + 128 * 128;
    const struct {
        const char *what;
        std::uintmax_t size; // of the image
        std::uint64_t offset;
        std::string bytes;
    } cases[] = {
        {"signature", whole, 512 + 7, "\xD4"},
        {"entries of 256 bytes", whole, 512 + 84, {"\0\1\0\0", 4}},
        {"no entries", whole, 512 + 80, {"\0\0\0\0", 4}},
        {"4,097 entries", whole, 512 + 80, {"\1\x10\0\0", 4}},
        {"entries outside", whole, 512 + 72, {"\0\0\1\0\0\0\0\0", 8}},
        {"entries beyond any offset", whole, 512 + 72, {"\1\0\0\0\0\0\0\x80", 8}},
        {"entries cut", whole - 1, 512, "E"},
        {"header cut", 1023, 512, "E"},
    };
    make_disk();
    const std::string damaged = image + "-damaged";
    for (const auto &[what, size, offset, bytes] : cases) {
        std::filesystem::copy_file(image, damaged, std::filesystem::copy_options::overwrite_existing);
        overwrite(damaged, offset, bytes);
        std::filesystem::resize_file(damaged, size);
        EXPECT_EQ(readGpt(damaged), numbers{}) << what;
    }
}

} // namespace
