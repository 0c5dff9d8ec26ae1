// The GPT reader, on tables written by sgdisk and on damaged ones.
#include "common/gpt.h"
#include "support.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;

TEST(gpt, lists_the_supported_entries_by_position_or_nothing)
{
    using numbers = std::vector<std::uint32_t>;
    const scratch_directory directory;
    const std::string image = directory.path() / "disk", damaged = directory.path() / "damaged";
    // Linux, Basic Data and EFI System; the entries of the second disk are moved to LBA 64.
    const std::string entries = " -n 1:0:+1M -t 1:8300 -n 2:0:+1M -t 2:0700 -n 3:0:+1M -t 3:ef00 ";
    run_tool("cd " + directory.path().string() + " && truncate -s 16M disk damaged && sgdisk" + entries +
             "disk && sgdisk -j 64 -S 4096 -n 4096:0:+1M -t 4096:0700" + entries + "damaged");
    EXPECT_EQ(readGpt(damaged), (numbers{2, 3, 4096}));
    constexpr std::uintmax_t whole = 2 * 512 + 128 * 128;
    fs::resize_file(image, whole);
    EXPECT_EQ(readGpt(image), (numbers{2, 3})) << "nothing beyond the entries is read";

    // What is damaged, the size of the image, the place of the damage, and its bytes.
    const std::tuple<const char *, std::uintmax_t, std::uint64_t, std::string> cases[] = {
        {"signature", whole, 512 + 7, "\xD4"},
        {"entries of 256 bytes", whole, 512 + 84, {"\0\1\0\0", 4}},
        {"no entries", whole, 512 + 80, {"\0\0\0\0", 4}},
        {"4,097 entries", whole, 512 + 80, {"\1\x10\0\0", 4}},
        {"entries outside", whole, 512 + 72, {"\0\0\1\0\0\0\0\0", 8}},
        {"entries beyond any offset", whole, 512 + 72, {"\1\0\0\0\0\0\0\x80", 8}},
        {"entries cut", whole - 1, 512, "E"},
        {"header cut", 1023, 512, "E"},
    };
    for (const auto &[what, size, offset, bytes] : cases) {
        fs::copy_file(image, damaged, fs::copy_options::overwrite_existing);
        overwrite(damaged, offset, bytes);
        fs::resize_file(damaged, size);
        EXPECT_EQ(readGpt(damaged), numbers{}) << what;
    }
}
