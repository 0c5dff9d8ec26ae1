// Names, the kinds of file systems that they lie on, and the files that are marked at first.
#include "common/filesystem.h"

#include "common/defaults.h"
#include "common/iconvert.h"
#include "support.h"

#include <cstdlib>
#include <gmock/gmock.h>

namespace fs = std::filesystem;
using namespace std::string_literals;

TEST(check_mime_type, is_false_without_a_database)
{
    EXPECT_TRUE(check_mime_type("/", "directory"));
    setenv("MAGIC", "/nonexistent", 1);
    EXPECT_FALSE(check_mime_type("/", "directory"));
    unsetenv("MAGIC");
}

TEST(defaults, present_files_in_table_order_without_linked_directories)
{
    const scratch_directory scratch;
    const replaced_host host(fs::canonical(scratch.path()));
    for (const char *file : {"usr/bin/pelva", "usr/lib/libpelva.so.1", "etc/pam.d/gtk-tarnel"})
        scratch.write(file, "");
    fs::create_symlink("libpelva.so.1", scratch.path() / "usr/lib/libpelva.so");
    fs::create_directory_symlink("lib", scratch.path() / "usr/lib64");
    EXPECT_EQ(check_fs_type("/proc"), 0U) << "nothing that a disk has";
    EXPECT_THAT(generate_defaults(),
                testing::ElementsAre("/etc/pam.d/gtk-tarnel", "/usr/lib/libpelva.so", "/usr/bin/pelva"));
}

TEST(pvl_iconv, converts_whole_texts_or_nothing)
{
    const std::tuple<std::string, const char *, const char *, std::optional<std::string>> cases[] = {
        {"Файл №1.txt", "utf8", "cp866", "\x94\xA0\xA9\xAB \xFC"s + "1.txt"},
        {"before\0after"s, "utf8", "cp866", "before"},
        {"wrong \xFFy", "utf8", "cp866", std::nullopt},
        {"text", "no-such-code", "utf-8", std::nullopt},
        {"a\0b\0\0\0\0\xDC"s, "utf-16le", "utf-8", "ab"},      // what is behind the end converts to nothing
        {"A\0\0B\0\0"s, "utf-16le", "utf-8", "A\xE4\x88\x80"}, // a zero pair at an odd offset ends nothing
        {std::string(4096, 'a'), "utf8", "cp866", std::nullopt},
    };
    for (const auto &[text, source, target, expected] : cases)
        EXPECT_EQ(pvl_iconv(text, source, target), expected) << text << " from " << source;
}

TEST(replace_backslash, separates_only_behind_directories)
{
    const scratch_directory scratch;
    fs::create_symlink("data", scratch.write("data/My\\Files/file", "").parent_path() / "link");
    const std::string root = scratch.path().string();
    std::string path = root + "\\data\\My\\Files\\link\\x/\\y";
    replace_backslash(path);
    EXPECT_EQ(path, root + "/data/My\\Files/link\\x/\\y");
}
