// The resolver on volumes with what other systems leave behind, and with damage.
#include "common/fat.h"

#include "common/iconvert.h"
#include "support.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <regex>

namespace {

using namespace std::string_literals;

std::string short_entry(const std::string &name, char attribute, char case_byte = 0, char cluster = 0)
{
    return name + attribute + case_byte + std::string(13, '\0') + cluster + std::string(5, '\0');
}

// The long-name entries before a short one.
std::string long_run(std::u16string name, const std::string &short_name)
{
    const std::size_t pieces = (name.size() + 12) / 13;
    name.append(name.size() < pieces * 13, u'\0').resize(pieces * 13, u'\xFFFF');
    std::uint8_t checksum = 0;
    for (const char byte : short_name)
        checksum =
            static_cast<std::uint8_t>((checksum << 7 | checksum >> 1) + static_cast<std::uint8_t>(byte));
    std::string run;
    for (std::size_t piece = pieces; piece > 0; --piece) {
        std::string entry(32, '\0');
        entry[0] = static_cast<char>(piece | (piece == pieces ? 0x40 : 0));
        entry[11] = '\x0F';
        entry[13] = static_cast<char>(checksum);
        for (std::size_t i = 0; i < 13; ++i) {
            const std::size_t at = 2 * i + (i < 5 ? 1 : i < 11 ? 4 : 6);
            entry[at] = static_cast<char>(name[13 * (piece - 1) + i]);
            entry[at + 1] = static_cast<char>(name[13 * (piece - 1) + i] >> 8);
        }
        run += entry;
    }
    return run;
}

std::size_t word(const std::string &bytes, std::size_t offset)
{
    return static_cast<std::uint8_t>(bytes[offset]) + 256U * static_cast<std::uint8_t>(bytes[offset + 1]);
}

// A file as another system may have left it; `back` is the name that its record gives.
struct foreign_file {
    std::string bytes, shown, record, back;
    bool is_directory;
};

foreign_file make_file(std::mt19937 &random)
{
    // '#' becomes a digit, so that some names of a directory are equal.
    static const struct {
        const char *short_name;
        char case_byte;
        const char *shown, *record, *back;
    } kinds[] = {{"README# TXT", 0x10, "README#.txt", "README#.TXT", "readme#.txt"},
                 {"README# EXE", 0x08, "readme#.EXE", "README#.EXE", "readme#.exe"},
                 {"\x94\x80\x89\x8B#   TXT", 0x10, "ФАЙЛ#.txt", "ФАЙЛ#.TXT", "файл#.txt"},
                 {"\xF6\xF0#     \x92XT", 0x18, "ўё#.тxt", "ЎЁ#.ТXT", "Ўё#.тxt"},
                 {"FOO #   TXT", 0, "FOO #.TXT", "FOO#.TXT", "FOO #.TXT"},
                 {"FOO#    TXT", 0, "FOO#.TXT", "FOO#.TXT", "FOO#.TXT"},
                 {" LEAD#   A ", 0, " LEAD#. A", "LEAD#", " LEAD#. A"}};
    static const char *const long_names[] = {"Foo #.txt with a long end", "Длинное имя файла #.txt",
                                             "a name of twenty-six char#"};
    const auto any = [&random](std::size_t of) { return random() % of; };
    const auto numbered = [digit = std::to_string(any(10))](const char *text) {
        return std::regex_replace(text, std::regex("#"), digit);
    };
    const auto &kind = kinds[any(std::size(kinds))];
    const std::string short_name = numbered(kind.short_name), long_name = numbered(long_names[any(3)]);
    const std::string run = long_run(std::filesystem::path(long_name).u16string(), short_name);
    std::string orphans[] = {
        run, run, run, run, run.substr(0, 32), run + short_entry("\xE5LD     TXT", 0x20)};
    orphans[0][32 + 13] ^= 1; // another checksum
    orphans[1][0] += 1;       // one piece too few
    orphans[2][0] ^= 0x40;
    orphans[3][32] = '\xE5';
    foreign_file file = {any(2) ? orphans[any(6)] : "", numbered(kind.shown), numbered(kind.record),
                         numbered(kind.back), any(6) == 0};
    if (any(2)) {
        file.bytes += run;
        file.shown = file.back = long_name;
    }
    const char attribute = file.is_directory ? '\x10' : any(2) ? ' ' : '\0';
    // A file may begin in the cluster where the directory goes on.
    file.bytes += short_entry(short_name, attribute, kind.case_byte, static_cast<char>(any(100)));
    return file;
}

std::string unusual_entries()
{
    const std::string run = long_run(u"pieces in another order", "LAST       ");
    std::string entries = short_entry("ONE        ", 0x08) + short_entry("ONE        ", 0x10, 0x18, 3) +
                          short_entry("TWO        ", 0x10, 0, 4) + short_entry("\x05HIDDEN TXT", 0x20) +
                          std::string(32, '\0') + run.substr(32) + run.substr(0, 32) +
                          short_entry("LAST       ", 0x20) + short_entry("FOOBAR  TXT", 0x20) +
                          short_entry("OLDONE  TXT", 0x20) + short_entry("OLD ONE TXT", 0x20);
    const std::u16string emoji = u"twelve chars\xD83D\xDE00.txt", many(270, u'n'), most(250, u'n');
    for (const auto &[long_name, short_name, attribute] : {std::tuple(u"Foo Bar.txt"s, "FOOBAR~1TXT", 0x20),
                                                           {emoji, "EMOJI~1 TXT", 0x20},
                                                           {u"\xD83D lone", "LONE~1     ", 0x20},
                                                           {u"../EFI/x", "UP~1       ", 0x20},
                                                           {many, "LONGRUN    ", 0x20},
                                                           {u"..", "OUT~1      ", 0x10},
                                                           {most, "TOOLONG    ", 0x10}})
        entries +=
            long_run(long_name, short_name) + short_entry(short_name, static_cast<char>(attribute), 0, 3);
    return entries;
}

struct fat_test : testing::Test {
    void make_volume(const std::string &options)
    {
        image = scratch.write("dev/sda1", "");
        const std::string size = options.substr(0, options.find(' ')), kind = options.substr(size.size());
        run_tool("truncate -s " + size + " " + image + " && mkfs.fat " + kind + " " + image);
        start = run_tool("head -c 1M " + image);
    }

    // Root, ONE and TWO are filled with what other systems leave, their clusters in turn. ONE is shown as
    // "one".
    void fill_directories()
    {
        const bool fat32 = word(start, 22) == 0;
        const std::size_t sector = word(start, 11), cluster = sector * static_cast<std::uint8_t>(start[13]);
        const std::size_t fat = sector * word(start, 14), width = fat32 ? 4 : 2;
        const std::size_t root = fat + word(start, 16) % 256 * sector * word(start, fat32 ? 36 : 22);
        const std::size_t data = root + word(start, 17) * 32;
        std::mt19937 random(20);
        for (std::size_t i = 0; i < 3; ++i) {
            directories[i].clear();
            std::string content = i == 0 ? unusual_entries() : "";
            while (directories[i].size() < 60)
                content += directories[i].emplace_back(make_file(random)).bytes;
            if (i == 0 && !fat32)
                overwrite(image, root, content);
            for (std::size_t at = 0; (i || fat32) && at < content.size(); at += cluster) {
                const std::size_t number = 2 + i + at / cluster * 3;
                overwrite(image, data + (number - 2) * cluster, content.substr(at, cluster));
                overwrite(image, fat + number * width,
                          le32_bytes(static_cast<std::uint32_t>(number + 3)).substr(0, width));
            }
        }
    }

    // Asks for a file of one of the directories, both ways.
    void expect_itself_or_nothing(fat_lookups &lookups, std::size_t i, const foreign_file &file)
    {
        static constexpr const char *paths[] = {"", "ONE\\", "TWO\\"}, *shown_paths[] = {"", "one/", "TWO/"};
        const auto first = [&](const std::string &name, std::string foreign_file::*member) {
            return std::ranges::find(directories[i], name, member);
        };
        const auto named = first(file.shown, &foreign_file::shown);
        const auto recorded = first(file.record, &foreign_file::record);
        std::optional<std::string> record, back;
        if (!named->is_directory && first(named->record, &foreign_file::record) == named)
            record = pvl_iconv(paths[i] + named->record, "utf8", "cp866");
        if (!recorded->is_directory)
            back = shown_paths[i] + recorded->back;
        const std::string shown = paths[i] + file.shown, text = paths[i] + file.record;
        EXPECT_EQ(lookups.find("sda1", shown, fat_direction::long_to_short), record) << shown;
        EXPECT_EQ(lookups.find("sda1", text, fat_direction::short_to_long), back) << text;
    }

    scratch_directory scratch;
    replaced_host host{scratch.path()};
    std::string image, start; // the start is of the empty volume
    std::vector<foreign_file> directories[3];
};

TEST_F(fat_test, leads_each_file_to_itself_or_nowhere)
{
    for (const auto *options :
         {"8M -F 16 -S 512 -s 1 -f 1", "64M -F 16 -S 4096 -s 1", "200M -F 16 -S 512 -s 64",
          "40M -F 32 -S 512 -s 1", "300M -F 32 -S 4096 -s 1 -R 3"}) {
        SCOPED_TRACE(options);
        make_volume(options);
        fill_directories();
        fat_lookups lookups;
        for (std::size_t file = 0; file < 60; ++file)
            for (const std::size_t i : {0U, 1U, 2U})
                expect_itself_or_nothing(lookups, i, directories[i][file]);
        for (const char *record : {"LAST", "\\LAST\\", "LONGRUN", "FOOBAR.TXT", "EMOJI~1.TXT"})
            for (const auto &resolve : {get_sfn_path, get_lfn_path})
                EXPECT_NE(resolve("sda1", record), std::nullopt) << record;
        EXPECT_EQ(get_sfn_path("sda1", "Foo Bar.txt"), "FOOBAR~1.TXT"); // and not FOOBAR.TXT
        EXPECT_EQ(get_sfn_path("sda1", "Old one.txt"), std::nullopt); // the firmware would find the other one
        EXPECT_EQ(get_lfn_path("sda1", "EMOJI~1.TXT"), "twelve chars\U0001F600.txt");
        const std::string file = directories[1][0].record;
        for (const std::string &path : {"LONE~1"s, "UP~1"s, "OUT~1\\" + file, "TOOLONG\\" + file})
            EXPECT_EQ(get_lfn_path("sda1", path), std::nullopt) << path;
        for (const char *path : {"\x05HIDDEN.TXT", "ONE", "ONE\\LAST", "LAST\\LAST", "", "\\", "euro €"})
            for (const auto &resolve : {get_sfn_path, get_lfn_path})
                EXPECT_EQ(resolve("sda1", path), std::nullopt) << path;
    }
}

TEST_F(fat_test, damaged_and_foreign_volumes_give_no_result)
{
    for (const bool fat32 : {false, true}) {
        make_volume(fat32 ? "40M -F 32 -S 512 -s 1" : "8M -F 16 -S 512 -s 1");
        run_tool("cd " + scratch.path().string() +
                 "; touch FILE.TXT; mmd -i dev/sda1 ::/DIR;"
                 "mcopy -i dev/sda1 FILE.TXT ::/DIR");
        const std::string sound = run_tool("head -c 1M " + image), file = "DIR\\FILE.TXT",
                          missing = "DIR\\MISSING";
        const std::size_t fat = 512 * word(sound, 14), entry = sound.find("DIR        \x10");
        const std::size_t content = sound.find(".          \x10");
        const std::size_t link = fat + word(sound, entry + 26) * (fat32 ? 4 : 2);
        std::vector<std::tuple<const char *, std::size_t, std::string, std::string>> damages = {
            {"no sector size", 11, "\0\0"s, file},
            {"odd sector size", 11, "\x03\x02", file},
            {"no cluster size", 13, "\0"s, file},
            {"no FAT", 16, "\0"s, file},
            {"FAT beyond the device", 14, "\xFF\xFF", file},
            {"directory outside", entry + 26, "\xF0\xFF", file},
            {"directory in cluster 1", entry + 26, "\x01\0"s, file},
            {"directory named as a file", entry + 11, "\x20", file},
            {"a file as a directory", content + 64 + 11, "\x10", file},
            {"no short entry", content, long_run(std::u16string(208, u'n'), "FILE    TXT"), file},
            {"chain to itself", link, sound.substr(entry + 26, 2) + "\0\0"s, missing},
            {"chain to a free cluster", link, "\0\0\0\0"s, missing},
            {"chain to a bad cluster", link, fat32 ? "\xF7\xFF\xFF\x0F" : "\xF7\xFF", missing},
        };
        if (fat32)
            for (const std::string &cluster : {"\0\0\0\0"s, "\x01\0\0\0"s, "\0\0\0\xFF"s})
                damages.emplace_back("root outside", 44, cluster, file);
        const auto overhead =
            static_cast<std::uint32_t>(entry / 512 + 32); // sectors; the entry is the first of FAT16's root
        if (!fat32)
            damages.emplace_back("FAT12", 19, le32_bytes(overhead + 0xFF4).substr(0, 2), file);
        for (const auto &[what, offset, bytes, path] : damages) {
            EXPECT_EQ(get_lfn_path("sda1", file), "DIR/FILE.TXT");
            overwrite(image, offset, bytes);
            EXPECT_EQ(get_sfn_path("sda1", path), std::nullopt) << what;
            EXPECT_EQ(get_lfn_path("sda1", path), std::nullopt) << what;
            overwrite(image, offset, sound.substr(offset, bytes.size()));
        }
        overwrite(image, 19, fat32 ? "" : le32_bytes(overhead + 0xFF5).substr(0, 2));
        EXPECT_EQ(get_lfn_path("sda1", file), "DIR/FILE.TXT") << "the smallest FAT16";
        for (const std::size_t length : {content + 80, entry, fat, std::size_t{511}}) {
            std::filesystem::resize_file(image, length);
            EXPECT_EQ(get_lfn_path("sda1", file), std::nullopt) << length;
        }
    }
    EXPECT_EQ(get_lfn_path("sdb1", "DIR\\FILE.TXT"), std::nullopt);
}

} // namespace
