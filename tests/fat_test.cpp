// The resolver against mtools: both are asked for every file of volumes that mkfs.fat and mtools have made.
#include "common/fat.h"

#include "common/iconvert.h"
#include "support.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <regex>

namespace {

using namespace std::string_literals;
using names = std::vector<std::string>;

// A fresh volume as /dev/sda1, and as mtools' drive z: with file names in code page 866.
class fat_test : public testing::Test {
protected:
    void make_volume(const std::string &size, const std::string &options)
    {
        image = scratch.write("dev/sda1", "");
        const std::string drive = "drive z:\n file=\"" + image + "\"\n codepage=866\n";
        setenv("MTOOLSRC", scratch.write("mtoolsrc", "mtools_skip_check=1\n" + drive).c_str(), 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        run_tool("truncate -s " + size + " " + image + " && mkfs.fat " + options + " " + image);
    }

    // Copies files, empty and not in turn, into a directory of the volume ("" or "NAME/").
    void copy(const std::string &directory, const names &files)
    {
        std::string command = "cd " + scratch.path().string() + " && mcopy";
        for (const std::string &name : files) {
            scratch.write(name, std::string(copied++ % 2 * 3000, 'x'));
            command += " './" + name + "'";
        }
        run_tool(command + " 'z:/" + directory + "'");
    }

    static std::string run_on(const std::string &tool, const std::string &directory, const names &files)
    {
        std::string command = tool;
        for (const std::string &name : files)
            command.append(" 'z:/").append(directory).append(name) += "'";
        return run_tool(command + " | iconv -f cp866 -t utf-8");
    }

    static void expect_both_ways(std::string long_path, const std::string &short_path)
    {
        EXPECT_EQ(get_lfn_path("sda1", short_path).value_or("over 255"),
                  long_path.size() > 255 ? "over 255" : long_path);
        replace_symbols(long_path, '/', '\\');
        EXPECT_EQ(get_sfn_path("sda1", long_path), pvl_iconv(short_path, "utf8", "cp866")) << long_path;
    }

    // Asks mtools and the resolver about files in a directory, given with its short name ("" or "NAME/").
    static void compare(const std::string &directory, const std::string &short_directory, const names &files)
    {
        std::stringstream answer(run_on("mshortname", directory, files));
        for (const std::string &name : files) {
            std::string line;
            std::getline(answer, line);
            expect_both_ways(directory + name, short_directory + line.substr(line.rfind('/') + 1));
        }
    }

    scratch_directory scratch;
    replaced_host host{scratch.path()};
    std::string image;
    std::size_t copied = 0;
};

names numbered_names(int number, std::size_t longest)
{
    const std::regex mark("#");
    names files = {std::string(longest - 6, 'm') + "#.txt"};
    for (const char *name :
         {"thirteen#.cc", "exactly twenty-six #.text", "exactly twenty-seven #.text",
          "Длинное имя файла #.документ", "Файл#.Txt", "ёж и #.txt", "two  blanks #.txt", " leading blank#",
          ".hidden#", "...dots..#..of.it.txt", "TAIL~#.TXT", "tail names #.txt", "lower#.txt", "нижний#.txt",
          "UPPER#.TXT", "ВЕРХ#.ТХТ", "makefile#", "Mixed#", "+#,;=.txt"})
        files.emplace_back(name);
    for (std::string &name : files)
        name = std::regex_replace(name, mark, std::to_string(number));
    return files;
}

struct geometry {
    const char *name, *size, *options;
    std::size_t longest = 255;
};

class fat_geometry_test : public fat_test, public testing::WithParamInterface<geometry> {};

TEST_P(fat_geometry_test, agrees_with_mtools_on_every_name)
{
    make_volume(GetParam().size, GetParam().options);
    const std::pair<std::string, std::string> directories[] = {{"", ""},
                                                               {"Program Files/", "PROGRA~1\\"},
                                                               {"lower~1/", "LOWER~1\\"},
                                                               {"Каталог с файлами/", "КАТАЛО~1\\"},
                                                               {"lower~1/.nested/", "LOWER~1\\NESTED~1\\"}};
    run_on("mmd", "", {"Program Files", "lower~1", "Каталог с файлами", "lower~1/.nested"});
    // Round by round, so that the directories grow in turn and their clusters lie scattered.
    names files;
    for (int number = 10; number < 18; number += 2) {
        names round = numbered_names(number, GetParam().longest);
        std::ranges::copy(numbered_names(number + 1, GetParam().longest), std::back_inserter(round));
        for (const auto &[directory, short_directory] : directories)
            copy(directory, round);
        std::ranges::copy(round, std::back_inserter(files));
    }
    // Some files lose their attribute, others leave holes, which names of other lengths fill.
    const names removed = {"lower13.txt", "exactly twenty-six 13.text", "ВЕРХ13.ТХТ",
                           "Длинное имя файла 13.документ"};
    for (const std::string &name : removed)
        files.erase(std::find(files.begin(), files.end(), name));
    files.insert(files.end(), {"short.new", "a new file with quite a long name.text"});
    for (const auto &[directory, short_directory] : directories) {
        run_on("mattrib -a", directory, numbered_names(14, GetParam().longest));
        run_on("mdel", directory, removed);
        copy(directory, {files.end() - 2, files.end()});
        compare(directory, short_directory, files);
        for (std::string path : removed) {
            replace_symbols(path.insert(0, directory), '/', '\\');
            EXPECT_EQ(get_sfn_path("sda1", path), std::nullopt);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    volumes, fat_geometry_test,
    // mtools finds no room for a name that needs more entries than a cluster holds.
    testing::Values(geometry{"fat16", "8M", "-F 16 -S 512 -s 1 -f 1 -r 8192", 169},
                    geometry{"fat16_large_sectors", "64M", "-F 16 -S 4096 -s 1 -f 2 -r 8192"},
                    geometry{"fat16_large_clusters", "200M", "-F 16 -S 512 -s 64 -f 2 -r 8192"},
                    geometry{"fat32", "40M", "-F 32 -S 512 -s 1 -f 2", 169},
                    geometry{"fat32_large_clusters", "600M", "-F 32 -S 1024 -s 8 -f 1"},
                    geometry{"fat32_large_sectors", "300M", "-F 32 -S 4096 -s 1 -f 2 -R 3"}),
    [](const auto &of) { return std::string(of.param.name); });

TEST_F(fat_test, follows_its_own_cluster_and_nobody_elses)
{
    // 16 entries fill a cluster. The last one's file begins in the next cluster; one directory goes on later.
    make_volume("3M", "-F 16 -S 512 -s 1");
    run_tool("mmd z:/NEXT z:/FULL");
    names files;
    for (char name = 'A'; name <= 'M'; ++name)
        scratch.write(files.emplace_back(1, name), "");
    scratch.write(files.emplace_back("LAST"), "x");
    for (const char *directory : {"NEXT", "FULL"})
        run_tool("cd " + scratch.path().string() + " && mcopy ? LAST z:/" + directory);
    copy("NEXT/", {"AFTER"});
    compare("FULL/", "FULL\\", files);
    EXPECT_EQ(get_lfn_path("sda1", "FULL\\AFTER"), std::nullopt);
    files.emplace_back("AFTER");
    compare("NEXT/", "NEXT\\", files);
}

std::string short_entry(const std::string &name, char attribute, char case_byte = 0, char cluster = 0)
{
    return name + attribute + case_byte + std::string(13, '\0') + cluster + std::string(5, '\0');
}

// One long-name entry, without checksum, of at most 13 units.
std::string long_entry(char sequence, std::u16string units)
{
    std::string entry =
        sequence + std::string(10, '\xFF') + '\x0F' + std::string(14, '\xFF') + "\0\0\xFF\xFF\xFF\xFF"s;
    if (units.size() < 13)
        units += u'\0';
    for (std::size_t i = 0; i < units.size(); ++i) {
        const std::size_t at = 2 * i + (i < 5 ? 1 : i < 11 ? 4 : 6);
        entry[at] = static_cast<char>(units[i]);
        entry[at + 1] = static_cast<char>(units[i] >> 8);
    }
    return entry;
}

std::string long_run(int entries)
{
    return entries ? long_entry(0x05, u"thirteen char") + long_run(entries - 1) : "";
}

std::size_t word(const std::string &bytes, std::size_t offset)
{
    return static_cast<std::uint8_t>(bytes[offset]) + 256U * static_cast<std::uint8_t>(bytes[offset + 1]);
}

TEST_F(fat_test, reads_names_that_others_wrote)
{
    const std::string root =
        short_entry("EFI        ", 0x08) + short_entry("EFI        ", 0x10, 0x18, 4) +
        short_entry("FOO BAR TXT", 0x20) + short_entry("FOOBAR  TXT", 0) + short_entry(" LEAD    A ", 0x20) +
        short_entry("LOWER   TXT", 0x20, 0x18) + short_entry("MAKEFILE   ", 0x20) +
        short_entry("\x94\x80\x89\x8B    TXT", 0x20) + short_entry("\x05HIDDEN TXT", 0x20) +
        long_entry(0x42, u"\xDE00.txt") + long_entry(1, u"twelve chars\xD83D") +
        short_entry("EMOJI~1 TXT", 0x20) + long_entry(0x41, u"\xD83D lone") +
        short_entry("LONE~1     ", 0x20) + long_entry(0x41, u"../EFI/x") + short_entry("UP~1       ", 0x20) +
        long_entry(0x41, u"gone") + short_entry("\xE5ONE       ", 0x20) + long_entry('\xE5', u"deleted") +
        short_entry("PLAIN      ", 0x20) + long_run(21) + short_entry("LONGRUN    ", 0x20) +
        short_entry("DIR        ", 0x10) + std::string(32, '\0') + short_entry("LAST       ", 0x20);
    for (const bool fat32 : {false, true}) {
        make_volume("8M", fat32 ? "-F 32 -S 512 -s 8" : "-F 16 -S 512 -s 2 -r 128");
        const std::string boot = run_tool("head -c 512 " + image);
        const std::size_t start = 512 * (word(boot, 14) + 2 * word(boot, fat32 ? 36 : 22));
        overwrite(image, start, root);
        overwrite(image, start + (fat32 ? 2 * 4096 : 4096 + 2 * 1024), short_entry("GRUB    EFI", 0x20));
        for (const char *path :
             {"FOO BAR.TXT", "FOOBAR.TXT", " LEAD. A", "MAKEFILE", "ФАЙЛ.TXT", "PLAIN", "LAST"})
            expect_both_ways(path, path);
        expect_both_ways("lower.txt", "LOWER.TXT");
        expect_both_ways("efi/GRUB.EFI", "EFI\\GRUB.EFI");
        EXPECT_EQ(get_lfn_path("sda1", "\\EMOJI~1.TXT\\"), "twelve chars\U0001F600.txt");
        for (const char *path : {"LONE~1", "UP~1", "LONGRUN"})
            EXPECT_EQ(get_lfn_path("sda1", path), std::nullopt) << path;
        for (const char *path :
             {"\x05HIDDEN.TXT", "gone", "EFI", "DIR", "DIR\\LAST", "LAST\\LAST", "", "\\", "euro €"})
            for (const auto &resolve : {get_sfn_path, get_lfn_path})
                EXPECT_EQ(resolve("sda1", path), std::nullopt) << path;
    }
}

TEST_F(fat_test, damaged_and_foreign_volumes_give_no_result)
{
    for (const bool fat32 : {false, true}) {
        make_volume(fat32 ? "40M" : "8M", fat32 ? "-F 32 -S 512 -s 1" : "-F 16 -S 512 -s 1");
        run_tool("mmd z:/DIR");
        copy("DIR/", {"FILE.TXT"});
        const std::string sound = run_tool("head -c 1M " + image);
        const std::size_t fat = 512 * word(sound, 14);
        const std::size_t entry = sound.find("DIR        \x10");
        const std::size_t content = sound.find(".          \x10");
        const std::size_t link = fat + word(sound, entry + 26) * (fat32 ? 4 : 2);
        const std::string file = "DIR\\FILE.TXT", missing = "DIR\\MISSING";
        std::vector<std::tuple<const char *, std::size_t, std::string, std::string>> damages = {
            {"no sector size", 11, "\0\0"s, file},
            {"odd sector size", 11, "\x03\x02", file},
            {"no cluster size", 13, "\0"s, file},
            {"no FAT", 16, "\0"s, file},
            {"FAT beyond the device", 14, "\xFF\xFF", file},
            {"directory outside", entry + 26, "\xF0\xFF", file},
            {"directory in cluster 1", entry + 26, "\x01\0"s, file},
            {"directory without cluster", entry + 26, "\0\0"s, file},
            {"directory named as a file", entry + 11, "\x20", file},
            {"a file as a directory", content + 64 + 11, "\x10", file},
            {"no short entry", content, long_run(16), file},
            {"chain to itself", link, sound.substr(entry + 26, 2) + "\0\0"s, missing},
            {"chain to cluster 1", link, "\x01\0\0\0"s, missing},
            {"chain to a free cluster", link, "\0\0\0\0"s, missing},
            {"chain to a bad cluster", link, fat32 ? "\xF7\xFF\xFF\x0F" : "\xF7\xFF", missing},
        };
        if (fat32)
            for (const std::string &cluster : {"\0\0\0\0"s, "\x01\0\0\0"s, "\0\0\0\xFF"s})
                damages.emplace_back("root outside", 44, cluster, file);
        for (const auto &[what, offset, bytes, path] : damages) {
            EXPECT_EQ(get_lfn_path("sda1", "DIR\\FILE.TXT"), "DIR/FILE.TXT");
            overwrite(image, offset, bytes);
            const auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(get_sfn_path("sda1", path), std::nullopt) << what;
            EXPECT_EQ(get_lfn_path("sda1", path), std::nullopt) << what;
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << what;
            overwrite(image, offset, sound.substr(offset, bytes.size()));
        }
        for (const std::size_t length : {content + 80, entry, fat, std::size_t{511}}) {
            std::filesystem::resize_file(image, length);
            EXPECT_EQ(get_lfn_path("sda1", "DIR\\FILE.TXT"), std::nullopt) << length;
        }
    }
    EXPECT_EQ(get_lfn_path("sdb1", "DIR\\FILE.TXT"), std::nullopt);

    make_volume("1440K", "-F 12");
    copy("", {"FILE.TXT"});
    EXPECT_EQ(get_sfn_path("sda1", "FILE.TXT"), std::nullopt) << "FAT12";
}

} // namespace
