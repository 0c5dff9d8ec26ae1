#include "common/iconvert.h"

#include "support.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(pvl_iconv, converts_whole_texts_or_nothing)
{
    const std::string longest(4095, 'a');
    const std::tuple<std::string, const char *, const char *, std::optional<std::string>> cases[] = {
        {"Файл №1.txt", "utf8", "cp866", "\x94\xA0\xA9\xAB \xFC"s + "1.txt"},
        {"before\0after"s, "utf8", "cp866", "before"},
        {"wrong \xFFy", "utf8", "cp866", std::nullopt},
        {"text", "no-such-code", "utf-8", std::nullopt},
        {"a\0b\0\0\0c\0"s, "utf-16le", "utf-8", "ab"},
        {"A\0\0B\0\0"s, "utf-16le", "utf-8", "A\xE4\x88\x80"}, // a zero pair at an odd offset ends nothing
        {longest + "a", "utf8", "cp866", std::nullopt},
    };
    for (const auto &[text, source, target, expected] : cases)
        EXPECT_EQ(pvl_iconv(text, source, target), expected) << text << " from " << source;
    EXPECT_EQ(pvl_iconv({}, "utf8", "cp866"), std::nullopt);
}

TEST(replace_backslash, separates_only_behind_directories)
{
    const scratch_directory scratch;
    scratch.write("data/My\\Files/file", "");
    std::filesystem::create_symlink("data", scratch.path() / "link");
    const std::string root = scratch.path().string();
    const std::pair<std::string, std::string> cases[] = {
        {root + "/data\\My\\Files\\file\\x", root + "/data/My\\Files/file\\x"},
        {root + "/\\data\\x", root + "/\\data\\x"},
        {root + "\\link\\My\\Files", root + "/link\\My\\Files"},
        {"\\" + std::string(4094, 'x'), "/" + std::string(4094, 'x')},
        {"\\" + std::string(4095, 'x'), "\\" + std::string(4095, 'x')},
    };
    for (auto [path, expected] : cases) {
        replace_backslash(path);
        EXPECT_EQ(path, expected);
    }
}
