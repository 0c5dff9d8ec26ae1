// The command that prints templates, as it was built, beside the listing of the sample machine's own reader.
#include "template_bytes.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

class tarnel_list : public testing::Test {
protected:
    void save(const pair_bytes &pair, const std::string &name)
    {
        directory.write(name + ".nam", pair.nam);
        directory.write(name + ".chk", pair.chk);
    }

    // Standard output; what went to standard error is in `errors`, the exit status in `status`.
    std::string list(const std::string &arguments)
    {
        const std::string script = "cd " + directory.path().string() +
                                   " && LC_ALL=C.UTF-8 PELVADB=. " TARNEL_LIST " " + arguments +
                                   " >out 2>errors";
        const int result = std::system(script.c_str()); // NOLINT
        status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
        errors = content_of(directory.path() / "errors");
        return content_of(directory.path() / "out");
    }

    scratch_directory directory;
    std::string errors;
    int status = -1;
};

TEST_F(tarnel_list, agrees_with_an_independent_reader)
{
    std::string upper_half = "K:\\";
    for (int byte = 0x80; byte <= 0xFF; ++byte)
        upper_half += static_cast<char>(byte);
    save(pair_of(
             2, "C:/bootfile.nam",
             {"C:/boot/vmlinuz", "C:/\u042f \u0431\\x", "K:\\PROGRA~1\\TRUSTE~1\\LOADER~1.INI", upper_half}),
         "bootfile");
    save(pair_of(1, "C:/bootsect.nam", {{'\x80', 0, 0, 0, 0}, "\x81\x01\x02\x03\xFE"}), "bootsect");
    const std::string expected = run_tool("python3 " SCENARIOS "/templates.py " + directory.path().string() +
                                          " | sed -n 's/^  drive \\(.*\\), sector /  \\1 /; s/^  //p'");
    EXPECT_EQ(list(""), expected);
    EXPECT_EQ(status, 0) << errors;
    EXPECT_EQ(list(directory.path().string()), expected);
    EXPECT_TRUE(expected.ends_with("0x80 0\n0x81 4261609985\n")) << expected;
}

TEST_F(tarnel_list, prints_any_name_on_one_line_and_as_it_is_with_null)
{
    const std::string hostile = "C:/a\nb\xff<0x<U+\u202e", longest(256, 'n');
    save(pair_of(2, "C:/bootfile.nam", {hostile, "D:\\\x01", longest}), "bootfile");
    save(pair_of(1, "C:/bootsect.nam", {{'\x80', 0, 8, 0, 0}}), "bootsect");
    EXPECT_EQ(list("."),
              "C:/a<U+000A>b<0xFF><U+003C>0x<U+003C>U+<U+202E>\nD:\\<U+0001>\n" + longest + "\n0x80 2048\n");
    const std::string zero(1, '\0');
    EXPECT_EQ(list("--null"), hostile + zero + "D:\\\x01" + zero + longest + zero + "0x80 2048" + zero);
    EXPECT_EQ(status, 0);
}

TEST_F(tarnel_list, says_which_pair_is_missing_or_not_whole)
{
    const pair_bytes files = pair_of(2, "C:/bootfile.nam", {"C:/a", "C:/b"}), sectors = pair_of(1, "", {});
    pair_bytes more = files, fewer = files;
    more.nam.replace(0x110, 1, "\x3");
    more.chk.replace(0x110, 1, "\x3");
    fewer.chk.replace(0x110, 1, "\x1");
    const std::string broken = "tarnel-list: The file template in . is not whole\n";
    const struct {
        pair_bytes pair;
        std::string listed, errors;
    } cases[] = {
        {files, "C:/a\nC:/b\n", ""},
        {{files.nam + "x", files.chk}, "C:/a\nC:/b\n", broken},
        {{files.nam, files.chk.substr(0, 1028)}, "C:/a\nC:/b\n", broken},
        {{files.nam.substr(0, 1500), files.chk}, "C:/a\n", broken},
        {more, "C:/a\nC:/b\n", broken},
        {fewer, "C:/a\nC:/b\n", broken},
        {{files.chk, files.nam}, "", broken},
        {{"", files.chk}, "", broken},
    };
    save(sectors, "bootsect");
    for (const auto &c : cases) {
        save(c.pair, "bootfile");
        EXPECT_EQ(list(""), c.listed);
        EXPECT_EQ(errors, c.errors);
        EXPECT_EQ(status, c.errors.empty() ? 0 : 1);
    }
    for (const char *name : {"bootfile.nam", "bootfile.chk", "bootsect.chk"})
        std::filesystem::remove(directory.path() / name);
    EXPECT_EQ(list(""), "");
    EXPECT_EQ(errors, "tarnel-list: There is no file template in .\n"
                      "tarnel-list: The sector template in . is not whole\n");
    save(files, "bootfile");
    save(sectors, "bootsect");
    for (const auto &[arguments, expected] : {std::pair(". .", 2), {"''", 2}, {"--no", 2}, {"--help", 0}}) {
        list(arguments);
        EXPECT_EQ(status, expected) << arguments;
    }
}

} // namespace
