// The resolver against mtools: both are asked for every file of volumes that mkfs.fat and mtools have made.
#include "common/fat.h"

#include "common/iconvert.h"
#include "support.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
            command += " 'z:/" + directory + name + "'";
        return run_tool(command + " | iconv -f cp866 -t utf-8");
    }

    static names short_names(const std::string &directory, const names &files)
    {
        const std::string answer = run_on("mshortname", directory, files);
        names found;
        for (std::size_t start = 0, end; (end = answer.find('\n', start)) != answer.npos; start = end + 1)
            found.push_back(answer.substr(0, end).substr(answer.rfind('/', end) + 1));
        return found;
    }

    static void expect_both_ways(std::string long_path, const std::string &short_path)
    {
        // A result of more than 255 bytes is none.
        const auto expected = long_path.size() > 255 ? std::nullopt : std::optional(long_path);
        EXPECT_EQ(get_lfn_path("sda1", short_path), expected);
        replace_symbols(long_path, '/', '\\');
        EXPECT_EQ(get_sfn_path("sda1", long_path), pvl_iconv(short_path, "utf8", "cp866")) << long_path;
    }

    static void compare(const std::string &directory, const std::string &short_directory, const names &files)
    {
        const names expected = short_names(directory, files);
        ASSERT_EQ(expected.size(), files.size());
        for (std::size_t i = 0; i < files.size(); ++i)
            expect_both_ways(directory + files[i], short_directory + expected[i]);
    }

    std::string head_of_image() const
    {
        std::string bytes(1 << 20, '\0');
        std::ifstream(image, std::ios::binary).read(bytes.data(), 1 << 20);
        return bytes;
    }

    void patch(std::size_t offset, const std::string &bytes) const
    {
        std::fstream stream(image, std::ios::binary | std::ios::in | std::ios::out);
        stream.seekp(static_cast<std::streamoff>(offset)) << bytes;
    }

    scratch_directory scratch;
    replaced_host host{scratch.path()};
    std::string image;
    std::size_t copied = 0;
};

names numbered_names(int number, std::size_t longest)
{
    const std::string n = std::to_string(number);
    return {"thirteen" + n + ".cc",
            "exactly twenty-six " + n + ".text",
            "exactly twenty-seven " + n + ".text",
            std::string(longest - 6, 'm') + n + ".txt",
            "Длинное имя файла " + n + ".документ",
            "Файл" + n + ".Txt",
            "ёж и " + n + ".txt",
            "two  blanks " + n + ".txt",
            " leading blank" + n,
            ".hidden" + n,
            "...dots.." + n + "..of.it.txt",
            "TAIL~" + n + ".TXT",
            "tail names " + n + ".txt",
            "lower" + n + ".txt",
            "нижний" + n + ".txt",
            "UPPER" + n + ".TXT",
            "ВЕРХ" + n + ".ТХТ",
            "makefile" + n,
            "Mixed" + n,
            "+" + n + ",;=.txt"};
}

struct geometry {
    const char *name, *size, *options;
    std::size_t longest = 255;
};

class fat_geometry_test : public fat_test, public testing::WithParamInterface<geometry> {};

TEST_P(fat_geometry_test, agrees_with_mtools_on_every_name)
{
    make_volume(GetParam().size, GetParam().options);
    const names directories = {"", "Program Files", "lower~1", "Каталог с файлами", "lower~1/.nested"};
    run_on("mmd", "", {directories.begin() + 1, directories.end()});
    // Round by round, so that the directories grow in turn and their clusters lie scattered. Some files lose
    // their attribute, others leave holes for names of other lengths.
    names files;
    for (int number = 10; number < 18; number += 2) {
        names round = numbered_names(number, GetParam().longest);
        const names more = numbered_names(number + 1, GetParam().longest);
        round.insert(round.end(), more.begin(), more.end());
        for (const std::string &directory : directories)
            copy(directory + "/", round);
        files.insert(files.end(), round.begin(), round.end());
    }
    const names added = {"short.new", "a new file with quite a long name.text"};
    const names removed = {"lower13.txt", "exactly twenty-six 13.text", "ВЕРХ13.ТХТ",
                           "Длинное имя файла 13.документ"};
    for (const std::string &name : removed)
        files.erase(std::find(files.begin(), files.end(), name));
    for (const std::string &directory : directories) {
        run_on("mattrib -a", directory + "/", numbered_names(14, GetParam().longest));
        run_on("mdel", directory + "/", removed);
        copy(directory + "/", added);
    }
    files.insert(files.end(), added.begin(), added.end());
    names shorts = short_names("", {directories.begin() + 1, directories.end()});
    shorts.insert(shorts.begin(), "");
    shorts.back() = shorts[2] + "\\" + shorts.back();
    for (std::size_t i = 0; i < directories.size(); ++i) {
        compare(directories[i] + (i ? "/" : ""), shorts[i] + (i ? "\\" : ""), files);
        for (const std::string &name : removed)
            EXPECT_EQ(get_sfn_path("sda1", directories[i] + "\\" + name), std::nullopt);
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

std::size_t word(const std::string &bytes, std::size_t offset)
{
    return static_cast<std::uint8_t>(bytes[offset]) + 256U * static_cast<std::uint8_t>(bytes[offset + 1]);
}

TEST_F(fat_test, reads_names_that_others_wrote)
{
    std::string overlong;
    for (int i = 0; i < 21; ++i)
        overlong += long_entry('\x05', u"thirteen char");
    const std::string root =
        short_entry("EFI        ", 0x08) + short_entry("EFI        ", 0x10, 0x18, 4) +
        short_entry("FOO BAR TXT", 0x20) + short_entry("FOOBAR  TXT", 0) + short_entry(" LEAD    A ", 0x20) +
        short_entry("LOWER   TXT", 0x20, 0x18) + short_entry("MAKEFILE   ", 0x20) +
        short_entry("\x94\x80\x89\x8B    TXT", 0x20) + short_entry("\x05HIDDEN TXT", 0x20) +
        long_entry(0x42, u"\xDE00.txt") + long_entry(1, u"twelve chars\xD83D") +
        short_entry("EMOJI~1 TXT", 0x20) + long_entry(0x41, u"\xD83D lone") +
        short_entry("LONE~1     ", 0x20) + long_entry(0x41, u"../EFI/x") + short_entry("UP~1       ", 0x20) +
        long_entry(0x41, u"gone") + short_entry("\xE5ONE       ", 0x20) + long_entry('\xE5', u"deleted") +
        short_entry("PLAIN      ", 0x20) + overlong + short_entry("LONGRUN    ", 0x20) +
        short_entry("DIR        ", 0x10) + std::string(32, '\0') + short_entry("LAST       ", 0x20);
    for (const bool fat32 : {false, true}) {
        make_volume("8M", fat32 ? "-F 32 -S 512 -s 8" : "-F 16 -S 512 -s 2 -r 128");
        const std::string boot = head_of_image();
        const std::size_t start = 512 * (word(boot, 14) + 2 * word(boot, fat32 ? 36 : 22));
        patch(start, root);
        patch(start + (fat32 ? 2 * 4096 : 4096 + 2 * 1024), short_entry("GRUB    EFI", 0x20));
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

struct damage {
    const char *what;
    std::size_t offset;
    std::string bytes;
    const char *path = "DIR\\FILE.TXT";
};

TEST_F(fat_test, damaged_volumes_end_with_no_result)
{
    for (const bool fat32 : {false, true}) {
        make_volume(fat32 ? "40M" : "8M", fat32 ? "-F 32 -S 512 -s 1" : "-F 16 -S 512 -s 1");
        run_tool("mmd z:/DIR");
        copy("DIR/", {"FILE.TXT"});
        const std::string sound = head_of_image();
        const std::size_t fat = 512 * word(sound, 14);
        const std::size_t entry = sound.find("DIR        \x10");
        const std::size_t content = sound.find(".          \x10");
        const std::size_t link = fat + word(sound, entry + 26) * (fat32 ? 4 : 2);
        const char *const missing = "DIR\\MISSING";
        std::string run;
        while (run.size() < 512)
            run += long_entry(0x41, u"thirteen char");
        std::vector<damage> damages = {
            {"no sector size", 11, "\0\0"s},
            {"odd sector size", 11, "\x03\x02"},
            {"no cluster size", 13, "\0"s},
            {"no FAT", 16, "\0"s},
            {"FAT beyond the device", 14, "\xFF\xFF"},
            {"directory outside", entry + 26, "\xF0\xFF"},
            {"directory in cluster 1", entry + 26, "\x01\0"s},
            {"directory without cluster", entry + 26, "\0\0"s},
            {"directory named as a file", entry + 11, "\x20"},
            {"a file as a directory", content + 64 + 11, "\x10"},
            {"chain to itself", link, sound.substr(entry + 26, 2) + "\0\0"s, missing},
            {"chain to cluster 1", link, "\x01\0\0\0"s, missing},
            {"chain to a free cluster", link, "\0\0\0\0"s, missing},
            {"chain to a bad cluster", link, fat32 ? "\xF7\xFF\xFF\x0F" : "\xF7\xFF", missing},
            {"no short entry", content, run},
        };
        if (fat32)
            for (const std::string &cluster : {"\0\0\0\0"s, "\x01\0\0\0"s, "\0\0\0\xFF"s})
                damages.push_back({"root outside", 44, cluster});
        for (const auto &[what, offset, bytes, path] : damages) {
            EXPECT_EQ(get_lfn_path("sda1", "DIR\\FILE.TXT"), "DIR/FILE.TXT");
            patch(offset, bytes);
            const auto start = std::chrono::steady_clock::now();
            for (const auto &resolve : {get_sfn_path, get_lfn_path})
                EXPECT_EQ(resolve("sda1", path), std::nullopt) << what;
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << what;
            patch(offset, sound.substr(offset, bytes.size()));
        }
        for (const std::size_t length : {std::size_t{0}, std::size_t{511}, fat, entry, content + 80}) {
            scratch.write("dev/sda1", sound.substr(0, length));
            EXPECT_EQ(get_lfn_path("sda1", "DIR\\FILE.TXT"), std::nullopt) << length;
        }
    }
    EXPECT_EQ(get_lfn_path("sdb1", "DIR\\FILE.TXT"), std::nullopt);
}

TEST_F(fat_test, says_what_it_does)
{
    make_volume("8M", "-F 16 -s 1");
    run_tool("mmd 'z:/Program Files'");
    copy("Program Files/", {"Readme.txt"});
    captured_trace trace;
    EXPECT_EQ(get_sfn_path("sda1", "Program Files\\Readme.txt"), "PROGRA~1\\README.TXT");
    EXPECT_EQ(get_sfn_path("sda1", "Program Files\\x"), std::nullopt);
    const std::string messages = trace.messages();
    for (const char *line :
         {"Trying find Program Files\\Readme.txt on /dev/sda1\n", "LFN end address:",
          "long_name = Readme.txt, entry_filename = README.TXT, namePart=Readme.txt namePartUp= "
          "README.TXT\nconverted path of Program Files\\Readme.txt - PROGRA~1\\README.TXT\n",
          "Final cluster\nFile Program Files\\x not found\n"})
        EXPECT_THAT(messages, testing::HasSubstr(line));
    make_volume("1440K", "-F 12");
    captured_trace refused;
    EXPECT_EQ(get_sfn_path("sda1", "x"), std::nullopt);
    EXPECT_THAT(refused.messages(), testing::HasSubstr("File system is not supported!\n"));
}

} // namespace
