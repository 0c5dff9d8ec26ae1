// The template format: whole files against bytes built here, and readers on damaged pairs.
#include "common/file_format.h"

#include "support.h"
#include "template_bytes.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

using testing::HasSubstr;

namespace {

const std::vector<std::string> three_files = {"C:/boot/vmlinuz", "D:\\EFI\\BOOT\\BOOTX64.EFI",
                                              "C:/" + std::string(252, 'n')};

struct file_list {
    int result = 0;
    std::vector<std::string> texts;
    std::size_t stop_after = SIZE_MAX;
    std::uint32_t count = 0;
};

file_list read_files(const pair_bytes &pair, std::size_t stop_after = SIZE_MAX)
{
    const scratch_directory directory;
    directory.write("bootfile.nam", pair.nam);
    directory.write("bootfile.chk", pair.chk);
    file_list list;
    list.stop_after = stop_after;
    list.result = read_file_list(
        directory.path(),
        [](std::uint32_t count, void *user) { static_cast<file_list *>(user)->count = count; },
        [](const char *text, void *user) {
            auto &seen = *static_cast<file_list *>(user);
            seen.texts.emplace_back(text);
            return seen.texts.size() >= seen.stop_after ? 1 : 0;
        },
        &list);
    return list;
}

TEST(file_format, headers_are_exact)
{
    const scratch_directory directory;
    for (const auto &[kind, path, name] : {std::tuple{list_kind::files, "C:/boot/pelva/", "bootfile.nam"},
                                           std::tuple{list_kind::sectors, "D:\\pelva\\", "bootsect.nam"}}) {
        const owned_file nam(std::fopen((directory.path() / "nam").c_str(), "wb+"));
        const owned_file chk(std::fopen((directory.path() / "chk").c_str(), "wb+"));
        ASSERT_EQ(fill_structures(nam.get(), chk.get(), path, 0xFFFFFFFF, kind), 1);
        ASSERT_TRUE(rewrite_record_count(nam.get(), 0) && rewrite_record_count(chk.get(), 0));
        std::fflush(nam.get());
        std::fflush(chk.get());
        const pair_bytes written{read_file(directory.path() / "nam"), read_file(directory.path() / "chk")};
        EXPECT_EQ(written, pair_of(static_cast<std::uint32_t>(kind), std::string(path) + name, {}));
    }
}

TEST(file_format, headers_that_cannot_be_written)
{
    const owned_file full(std::fopen("/dev/full", "wb"));
    std::setvbuf(full.get(), nullptr, _IONBF, 0);
    captured_trace trace;
    EXPECT_EQ(fill_structures(full.get(), full.get(), "C:/", 7, list_kind::files), 0);
    EXPECT_EQ(trace.messages(), "* Enter (nObjects=7)\nWriting headers: 1024 bytes\n"
                                "Write failed (written 0 bytes instead 1024)\n* Fail\n");
    // 127 bytes fit into the name path's field, and nothing is written for a longer one.
    EXPECT_TRUE(template_name_path(std::string(115, 'd'), list_kind::files));
    EXPECT_EQ(fill_structures(nullptr, nullptr, std::string(116, 'd'), 7, list_kind::sectors), 0);
}

TEST(file_format, file_list_cut_anywhere)
{
    const pair_bytes whole = pair_of(2, "C:/boot/pelva/bootfile.nam", three_files);
    EXPECT_THAT(read_files(whole).texts, testing::ElementsAreArray(three_files));
    for (std::size_t cut = 0; cut < whole.nam.size(); cut += cut < 1020 || cut > 1030 ? 5 : 1) {
        const file_list list = read_files({whole.nam.substr(0, cut), whole.chk});
        ASSERT_EQ(list.result, cut < 1024 ? -2 : 0) << cut;
        ASSERT_EQ(list.texts.size(), cut < 1024 ? 0 : (cut - 1024) / 256) << cut;
    }
    for (std::size_t cut = 0; cut < whole.chk.size(); ++cut)
        ASSERT_EQ(read_files({whole.nam, whole.chk.substr(0, cut)}).result, cut < 1024 ? -2 : 0) << cut;
}

TEST(file_format, damaged_file_lists)
{
    const pair_bytes whole = pair_of(2, "C:/bootfile.nam", three_files);
    const auto damaged = [&](std::size_t offset, const std::string &bytes, bool in_check = false) {
        pair_bytes pair = whole;
        (in_check ? pair.chk : pair.nam).replace(offset, bytes.size(), bytes);
        return pair;
    };
    const struct {
        const char *what;
        pair_bytes pair;
        int result;
        std::size_t texts;
        const char *trace;
    } cases[] = {
        {"claims 4G records", damaged(0x110, "\xFF\xFF\xFF\xFF"), 0, 3,
         "Unexpected end of file on 3-th record"},
        {"claims fewer", damaged(0x110, "\x02"), 0, 2, "bootfile.nam contains unhandled data at end of file"},
        {"trailing byte", {whole.nam + "x", whole.chk}, 0, 3, "contains unhandled data at end of file"},
        {"no NUL", damaged(1024, std::string(256, 'A')), 0, 3, "Record #1: D:\\EFI"},
        {"swapped", {whole.chk, whole.nam}, -2, 0, "Corrupted file\nError on read_structures\n"},
        {"name magic", damaged(3, "V"), -2, 0, "Corrupted file\n"},
        {"check magic", damaged(0, "s", true), -2, 0, "Corrupted file\n"},
    };
    for (const auto &[what, pair, result, texts, expected] : cases) {
        captured_trace trace;
        const file_list list = read_files(pair);
        EXPECT_THAT(trace.messages(), HasSubstr(expected)) << what;
        EXPECT_EQ(list.result, result) << what;
        EXPECT_EQ(list.texts.size(), texts) << what;
    }
    EXPECT_EQ(read_files(damaged(0x110, "\xFF\xFF\xFF\xFF")).count, 0xFFFFFFFF);
    EXPECT_EQ(read_files(damaged(1024, std::string(256, 'A'))).texts[0], std::string(256, 'A'));
    EXPECT_EQ(read_files(whole, 2).texts.size(), 2U);
}

TEST(file_format, missing_and_irregular_files)
{
    const scratch_directory directory;
    const auto ignore = [](const char *, void *) { return 0; };
    EXPECT_EQ(read_file_list(directory.path(), nullptr, ignore, nullptr), -1);
    ASSERT_EQ(mkfifo((directory.path() / "bootfile.nam").c_str(), 0600), 0);
    EXPECT_EQ(read_file_list(directory.path(), nullptr, ignore, nullptr), -1);
    std::filesystem::remove(directory.path() / "bootfile.nam");
    directory.write("bootfile.nam", pair_of(2, "", three_files).nam);
    EXPECT_EQ(read_file_list(directory.path(), nullptr, ignore, nullptr), -2);
}

TEST(file_format, sector_lists)
{
    const scratch_directory directory;
    const pair_bytes whole = pair_of(1, "C:/bootsect.nam", {{'\x80', 0, 0, 0, 0}, "\x81\x01\x02\x03\xFE"});
    EXPECT_EQ(whole.nam.size(), 1034U);
    directory.write("bootsect.chk", whole.chk);
    std::uint32_t count = 0;
    for (const std::string &nam : {whole.nam, whole.nam + "x"}) {
        directory.write("bootsect.nam", nam);
        const auto records = read_sector_list(directory.path(), count);
        ASSERT_TRUE(records && count == 2);
        EXPECT_EQ(sector_of(records[0]), 0U);
        EXPECT_EQ(records[1].drive_number, 0x81);
        EXPECT_EQ(sector_of(records[1]), 0xFE030201);
        EXPECT_EQ(make_sector_record(0x181, 0xFE030201).little_endian, records[1].little_endian);
    }
    for (const std::size_t cut : {1023U, 1024U, 1033U}) {
        directory.write("bootsect.nam", whole.nam.substr(0, cut));
        EXPECT_FALSE(read_sector_list(directory.path(), count)) << cut;
    }
    directory.write("bootsect.nam", std::string(whole.nam).replace(0x110, 4, "\xFF\xFF\xFF\xFF"));
    EXPECT_FALSE(read_sector_list(directory.path(), count));
    EXPECT_EQ(count, 0xFFFFFFFF);
    directory.write("bootsect.nam", std::string(whole.nam).replace(0x110, 1, 1, '\0'));
    EXPECT_TRUE(read_sector_list(directory.path(), count) && count == 0);
}

} // namespace
