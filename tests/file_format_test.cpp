// The template format: headers that cannot be written, and readers on damaged pairs.
#include "common/file_format.h"

#include "support.h"
#include "template_bytes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

const std::string four_billion = "\xFF\xFF\xFF\xFF";
const std::vector<std::string> three_files = {"C:/boot/vmlinuz", "D:\\EFI\\BOOT\\BOOTX64.EFI",
                                              "C:/" + std::string(252, 'n')};
const pair_bytes whole = pair_of(2, "C:/boot/pelva/bootfile.nam", three_files);

class file_format : public testing::Test {
protected:
    int read_files(const pair_bytes &pair, std::size_t stop_after = SIZE_MAX)
    {
        directory.write("bootfile.nam", pair.nam);
        directory.write("bootfile.chk", pair.chk);
        stop = stop_after;
        return read_files();
    }

    // The result of read_file_list; what its callbacks got is in `texts` and `count`.
    int read_files()
    {
        texts.clear();
        return read_file_list(
            directory.path(),
            [](std::uint32_t claimed, void *self) { static_cast<file_format *>(self)->count = claimed; },
            [](const char *text, void *self) {
                auto &test = *static_cast<file_format *>(self);
                test.texts.emplace_back(text);
                return test.texts.size() == test.stop ? 1 : 0;
            },
            this);
    }

    scratch_directory directory;
    std::vector<std::string> texts;
    std::size_t stop = 0;
    std::uint32_t count = 0;
};

TEST_F(file_format, headers_that_cannot_be_written)
{
    const owned_file full(std::fopen("/dev/full", "wb"));
    std::setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(fill_structures(full.get(), full.get(), std::string(115, 'd'), 7, list_kind::files), 0);
    // One byte more, and nothing is written: the field holds 127.
    EXPECT_EQ(fill_structures(nullptr, nullptr, std::string(116, 'd'), 7, list_kind::sectors), 0);
}

TEST_F(file_format, file_list_cut_anywhere)
{
    for (std::size_t cut = 0; cut < whole.nam.size(); ++cut) {
        ASSERT_EQ(read_files({whole.nam.substr(0, cut), whole.chk}), cut < 1024 ? -2 : 0) << cut;
        ASSERT_EQ(texts.size(), cut < 1024 ? 0 : (cut - 1024) / 256) << cut;
    }
    for (std::size_t cut = 0; cut < whole.chk.size(); ++cut)
        ASSERT_EQ(read_files({whole.nam, whole.chk.substr(0, cut)}), cut < 1024 ? -2 : 0) << cut;
    EXPECT_EQ(texts, three_files);
}

TEST_F(file_format, damaged_file_lists)
{
    const auto damaged = [](std::string bytes, std::size_t offset, const std::string &damage) {
        return bytes.replace(offset, damage.size(), damage);
    };
    const std::tuple<const char *, pair_bytes, int, std::size_t> cases[] = {
        {"a great count", {damaged(whole.nam, 0x110, four_billion), whole.chk}, 0, 3},
        {"a small count", {damaged(whole.nam, 0x110, "\x02"), whole.chk}, 0, 2},
        {"no count", {damaged(whole.nam, 0x110, {"\0", 1}), whole.chk}, 0, 0},
        {"one byte more", {whole.nam + "x", whole.chk}, 0, 3},
        {"a full record", {damaged(whole.nam, 1024, std::string(256, 'A')), whole.chk}, 0, 3},
        {"each other's place", {whole.chk, whole.nam}, -2, 0},
        {"magic of names", {damaged(whole.nam, 3, "V"), whole.chk}, -2, 0},
        {"magic of checks", {whole.nam, damaged(whole.chk, 0, "s")}, -2, 0},
    };
    for (const auto &[what, pair, result, records] : cases) {
        EXPECT_EQ(read_files(pair), result) << what;
        EXPECT_EQ(texts.size(), records) << what;
    }
    EXPECT_TRUE(read_files(whole, 2) == 0 && texts.size() == 2);
    EXPECT_EQ(count, 3U);
    std::filesystem::remove(directory.path() / "bootfile.chk");
    EXPECT_EQ(read_files(), -2);
    std::filesystem::remove(directory.path() / "bootfile.nam");
    EXPECT_EQ(read_files(), -1);
    ASSERT_EQ(mkfifo((directory.path() / "bootfile.nam").c_str(), 0600), 0);
    EXPECT_EQ(read_files(), -1);
}

TEST_F(file_format, sector_lists)
{
    const pair_bytes pair = pair_of(1, "C:/bootsect.nam", {{'\x80', 0, 0, 0, 0}, "\x81\x01\x02\x03\xFE"});
    directory.write("bootsect.chk", pair.chk);
    const auto read = [&](const std::string &nam) {
        directory.write("bootsect.nam", nam);
        return read_sector_list(directory.path(), count);
    };
    for (const std::string &nam : {pair.nam, pair.nam + "x"}) {
        const auto records = read(nam);
        ASSERT_TRUE(records && count == 2);
        EXPECT_EQ(sector_of(records[0]), 0U);
        EXPECT_EQ(records[1].drive_number, 0x81);
        EXPECT_EQ(sector_of(records[1]), 0xFE030201);
    }
    for (const std::size_t cut : {1023U, 1024U, 1033U})
        EXPECT_FALSE(read(pair.nam.substr(0, cut))) << cut;
    EXPECT_TRUE(!read(std::string(pair.nam).replace(0x110, 4, four_billion)) && count == 0xFFFFFFFF);
    EXPECT_TRUE(read(std::string(pair.nam).replace(0x110, 1, 1, '\0')) && count == 0);
}

} // namespace
