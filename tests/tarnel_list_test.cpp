// The command that prints templates, as it was built, and with it the readers of the format: whole, damaged
// and hostile pairs.
#include "template_bytes.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

class tarnel_list : public testing::Test {
protected:
    void save(const pair_bytes &files, const pair_bytes &sectors)
    {
        directory.write("bootfile.nam", files.nam);
        directory.write("bootfile.chk", files.chk);
        directory.write("bootsect.nam", sectors.nam);
        directory.write("bootsect.chk", sectors.chk);
    }

    // Exit status, blank, and what goes to standard output, then what goes to standard error.
    std::string list(const std::string &arguments)
    {
        const std::string here = directory.path();
        const int status = std::system( // NOLINT
            ("cd " + here + " && LC_ALL=C PELVADB=. " TARNEL_LIST " " + arguments + " >out 2>errors")
                .c_str());
        return std::to_string(WEXITSTATUS(status)) + " " + content_of(here + "/out") +
               content_of(here + "/errors");
    }

    scratch_directory directory;
};

TEST_F(tarnel_list, prints_any_name_on_one_line_and_as_it_is_with_null)
{
    const std::string hostile = "C:/a\nb\xff<0x<U+\u202e", longest(256, 'n'), zero(1, '\0');
    save(pair_of(2, "", {hostile, "C:/\u042f\\x", "K:\\\x80\x01\xFC", longest}),
         pair_of(1, "", {{'\x80', 0, 0, 0, 0}, "\x81\x01\x02\x03\xFE"}));
    const std::string expected = "0 C:/a<U+000A>b<0xFF><U+003C>0x<U+003C>U+<U+202E>\nC:/\u042f\\x\n"
                                 "K:\\\u0410<U+0001>\u2116\n" +
                                 longest + "\n0x80 0\n0x81 4261609985\n";
    EXPECT_EQ(list(""), expected);
    EXPECT_EQ(list(directory.path()), expected);
    EXPECT_EQ(list("--null"), "0 " + hostile + zero + "C:/\u042f\\x" + zero + "K:\\\x80\x01\xFC" + zero +
                                  longest + zero + "0x80 0" + zero + "0x81 4261609985" + zero);
    for (const auto &[arguments, expected_status] :
         {std::pair(". .", '2'), {"''", '2'}, {"--no", '2'}, {"--help", '0'}})
        EXPECT_EQ(list(arguments)[0], expected_status) << arguments;
}

TEST_F(tarnel_list, says_which_pair_is_missing_or_not_whole)
{
    const pair_bytes files = pair_of(2, "", {"C:/a", "C:/b"}),
                     sectors = pair_of(1, "", {"\x80\x01", "\x81\x02"});
    const auto claiming = [](std::string file) { return file.replace(0x110, 4, "\xFF\xFF\xFF\xFF"); };
    const std::string sector_lines = "0x80 1\n0x81 2\n",
                      broken = "tarnel-list: The file template in . is not whole\n",
                      broken_sectors = "tarnel-list: The sector template in . is not whole\n";
    const struct {
        pair_bytes files, sectors;
        std::string expected;
    } cases[] = {
        {files, sectors, "0 C:/a\nC:/b\n" + sector_lines},
        {{files.nam + "x", files.chk}, sectors, "1 C:/a\nC:/b\n" + sector_lines + broken},
        {{files.nam, files.chk.substr(0, 1028)}, sectors, "1 C:/a\nC:/b\n" + sector_lines + broken},
        {{files.nam.substr(0, 1535), files.chk}, sectors, "1 C:/a\n" + sector_lines + broken},
        {{files.nam.substr(0, 1023), files.chk}, sectors, "1 " + sector_lines + broken},
        {{files.nam, files.chk.substr(0, 1023)}, sectors, "1 " + sector_lines + broken},
        {{claiming(files.nam), claiming(files.chk)}, sectors, "1 C:/a\nC:/b\n" + sector_lines + broken},
        {{files.chk, files.nam}, sectors, "1 " + sector_lines + broken},
        {files, {sectors.nam + "x", sectors.chk}, "1 C:/a\nC:/b\n" + sector_lines + broken_sectors},
        {files, {sectors.nam.substr(0, 1033), sectors.chk}, "1 C:/a\nC:/b\n" + broken_sectors},
        {files, {claiming(sectors.nam), claiming(sectors.chk)}, "1 C:/a\nC:/b\n" + broken_sectors},
    };
    for (const auto &c : cases) {
        save(c.files, c.sectors);
        EXPECT_EQ(list(""), c.expected);
    }
    run_tool("cd " + directory.path().string() + " && rm boot* && mkfifo bootsect.nam");
    EXPECT_EQ(list(""), "1 tarnel-list: There is no file template in .\n"
                        "tarnel-list: Cannot read ./bootsect.nam: it is no regular file\n" +
                            broken_sectors);
}

} // namespace
