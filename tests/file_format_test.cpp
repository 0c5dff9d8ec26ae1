// The template format: its readers on damaged pairs.
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

TEST_F(file_format, file_list_cut_anywhere)
{
    for (std::size_t cut = 0; cut < whole.nam.size(); ++cut) {
        ASSERT_EQ(read_files({whole.nam.substr(0, cut), whole.chk}), cut < 1024 ? -2 : 0) << cut;
        ASSERT_EQ(texts.size(), cut < 1024 ? 0 : (cut - 1024) / 256) << cut;
    }
    EXPECT_EQ(read_files(whole), 0);
    EXPECT_EQ(texts, three_files);
}

TEST_F(file_format, damaged_file_lists)
{
    EXPECT_EQ(read_files({std::string(whole.nam).replace(0x110, 4, four_billion), whole.chk}), 0);
    EXPECT_EQ(std::tuple(texts.size(), count), std::tuple(3U, 0xFFFFFFFF));
    read_files({std::string(whole.nam).replace(1024, 256, std::string(256, 'A')), whole.chk});
    EXPECT_EQ(texts.at(0), std::string(256, 'A')) << "a record without a NUL";
    EXPECT_EQ(read_files({whole.chk, whole.nam}), -2);
    EXPECT_EQ(texts.size(), 0U);
    EXPECT_EQ(read_files(whole, 2), 0);
    EXPECT_EQ(std::tuple(texts.size(), count), std::tuple(2U, 3U));
    std::filesystem::remove(directory.path() / "bootfile.nam");
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
    EXPECT_TRUE(read(pair.nam + "x"));
    EXPECT_EQ(count, 2U);
    for (const std::size_t cut : {1023U, 1024U, 1033U})
        EXPECT_FALSE(read(pair.nam.substr(0, cut))) << cut;
    EXPECT_FALSE(read(std::string(pair.nam).replace(0x110, 4, four_billion)));
    EXPECT_EQ(count, 0xFFFFFFFF);
    EXPECT_TRUE(read(std::string(pair.nam).replace(0x110, 1, 1, '\0')));
    EXPECT_EQ(count, 0U);
}

} // namespace
