// The command that prints templates, as it was built, and with it the readers of the format: whole, damaged
// and hostile pairs, beside what the sample machine's own reader finds.
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
        const std::string script =
            "cd " + directory.path().string() + " && LC_ALL=C PELVADB=. " TARNEL_LIST " " + arguments;
        const int result = std::system((script + " >out 2>errors").c_str()); // NOLINT
        status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
        errors = content_of(directory.path() / "errors");
        return content_of(directory.path() / "out");
    }

    const pair_bytes no_sectors = pair_of(1, "C:/bootsect.nam", {});
    scratch_directory directory;
    std::string errors;
    int status = -1;
};

TEST_F(tarnel_list, agrees_with_an_independent_reader)
{
    std::string upper_half = "K:\\";
    for (int byte = 0x80; byte <= 0xFF; ++byte)
        upper_half += static_cast<char>(byte);
    save(pair_of(2, "", {"C:/boot/vmlinuz", "C:/\u042f \u0431\\x", "K:\\PROGRA~1\\LOADER~1.INI", upper_half}),
         "bootfile");
    save(pair_of(1, "", {{'\x80', 0, 0, 0, 0}, "\x81\x01\x02\x03\xFE"}), "bootsect");
    const std::string reader =
        "import sys, templates as t\n"
        "for r in t.records_of(2, t.read(2, sys.argv[1])[0]):\n"
        "    print(r.decode(\"utf-8\" if r[2:3] == b\"/\" else \"cp866\"))\n"
        "for r in t.records_of(1, t.read(1, sys.argv[1])[0]): print(\"0x%02x %d\" % r)\n";
    const std::string expected =
        run_tool("cd " SCENARIOS " && python3 -B -c '" + reader + "' " + directory.path().string());
    EXPECT_EQ(list(""), expected) << errors;
    EXPECT_EQ(list(directory.path().string()), expected) << errors;
    EXPECT_EQ(status, 0);
}

TEST_F(tarnel_list, prints_any_name_on_one_line_and_as_it_is_with_null)
{
    const std::string hostile = "C:/a\nb\xff<0x<U+\u202e", longest(256, 'n'), zero(1, '\0');
    save(pair_of(2, "", {hostile, "D:\\\x01", longest}), "bootfile");
    save(no_sectors, "bootsect");
    EXPECT_EQ(list("."), "C:/a<U+000A>b<0xFF><U+003C>0x<U+003C>U+<U+202E>\nD:\\<U+0001>\n" + longest + "\n");
    EXPECT_EQ(list("--null"), hostile + zero + "D:\\\x01" + zero + longest + zero);
    for (const auto &[arguments, expected] : {std::pair(". .", 2), {"''", 2}, {"--no", 2}, {"--help", 0}}) {
        list(arguments);
        EXPECT_EQ(status, expected) << arguments;
    }
}

TEST_F(tarnel_list, says_which_pair_is_missing_or_not_whole)
{
    const pair_bytes files = pair_of(2, "", {"C:/a", "C:/b"}),
                     sectors = pair_of(1, "", {"\x80\x01", "\x81\x02"});
    const auto claiming = [](const pair_bytes &pair, const std::string &nam_count,
                             const std::string &chk_count) {
        return pair_bytes{std::string(pair.nam).replace(0x110, nam_count.size(), nam_count),
                          std::string(pair.chk).replace(0x110, chk_count.size(), chk_count)};
    };
    const std::string many = "\xFF\xFF\xFF\xFF",
                      broken = "tarnel-list: The file template in . is not whole\n",
                      broken_sectors = "tarnel-list: The sector template in . is not whole\n";
    const struct {
        pair_bytes files, sectors;
        std::string listed, errors;
    } cases[] = {
        {files, sectors, "C:/a\nC:/b\n0x80 1\n0x81 2\n", ""},
        {{files.nam + "x", files.chk}, no_sectors, "C:/a\nC:/b\n", broken},
        {{files.nam, files.chk.substr(0, 1028)}, no_sectors, "C:/a\nC:/b\n", broken},
        {{files.nam.substr(0, 1535), files.chk}, no_sectors, "C:/a\n", broken},
        {{files.nam.substr(0, 1023), files.chk}, no_sectors, "", broken},
        {{files.nam, files.chk.substr(0, 1023)}, no_sectors, "", broken},
        {claiming(files, many, many), no_sectors, "C:/a\nC:/b\n", broken},
        {claiming(files, "\x2", "\x1"), no_sectors, "C:/a\nC:/b\n", broken},
        {{files.chk, files.nam}, no_sectors, "", broken},
        {files, {sectors.nam + "x", sectors.chk}, "C:/a\nC:/b\n0x80 1\n0x81 2\n", broken_sectors},
        {files, {sectors.nam.substr(0, 1033), sectors.chk}, "C:/a\nC:/b\n", broken_sectors},
        {files, claiming(sectors, many, many), "C:/a\nC:/b\n", broken_sectors},
    };
    for (const auto &c : cases) {
        save(c.files, "bootfile");
        save(c.sectors, "bootsect");
        EXPECT_EQ(list(""), c.listed);
        EXPECT_EQ(errors, c.errors);
        EXPECT_EQ(status, c.errors.empty() ? 0 : 1);
    }
    run_tool("cd " + directory.path().string() + " && rm boot* && mkfifo bootsect.nam");
    EXPECT_EQ(list(""), "");
    EXPECT_EQ(errors, "tarnel-list: There is no file template in .\n"
                      "tarnel-list: Cannot read ./bootsect.nam: it is no regular file\n" +
                          broken_sectors);
}

} // namespace
