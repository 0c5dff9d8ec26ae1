// The RTF writer: its bytes, and what an independent reader makes of the document.
#include "rtf_export.h"

#include "support.h"

#include <gmock/gmock.h>

namespace {

using files = std::vector<std::pair<std::string, std::uint64_t>>;

std::string document(const files &lines, int sectors)
{
    char *bytes = nullptr;
    std::size_t size = 0;
    owned_file stream(open_memstream(&bytes, &size));
    auto report = rtf_begin(stream.get());
    rtf_files_begin(*report);
    for (const auto &[name, length] : lines)
        rtf_file_line(*report, name, length);
    rtf_files_end(*report);
    rtf_sectors_begin(*report);
    for (int i = 0; i < sectors; ++i)
        rtf_sector_line(*report, "sda:/Master boot record", 512);
    rtf_sectors_end(*report);
    rtf_end(std::move(report));
    stream.reset();
    const owned_cstring owner(bytes);
    return {bytes, size};
}

TEST(rtf_export, writes_every_piece_byte_for_byte_and_as_another_reader_expects)
{
    const std::string head = "{\\rtf1\\ansi\\ansicpg1251\\deff0\\deflang1049\\plain {\n"
                             "{\\b Report}\\par\n{\\i File list:}\\par\n";
    // Names that try to break out of the document, and three that code page 1251 cannot hold.
    const std::string hostile = document({{"sda2:\\a}{{b\\par", 5000000000},
                                          {"two\nlines %s%n", 1},
                                          {"lone\xFF", 2},
                                          {"\x80{", 3},
                                          {"漢字", 4},
                                          {"last}", 5}},
                                         2);
    EXPECT_EQ(hostile, head + "File: sda2:\\\\a\\}\\{\\{b\\\\par, file size: 5000000000\\line\n"
                              "File: two\nlines %s%n, file size: 1\\line\n\\line\n\\line\n\\line\n"
                              "File: last\\}, file size: 5\\line\n"
                              "{\\b Total files: 6, total size: 5000000015}\\par\n{\\i Sector list:}\\par\n"
                              "Sector: sda:/Master boot record, sector size: 512\\line\n"
                              "Sector: sda:/Master boot record, sector size: 512\\line\n"
                              "{\\b Total sectors: 2, total size: 1024}\\par\n}}\n");
    const scratch_directory scratch;
    EXPECT_THAT(run_tool("unrtf --text --quiet " + scratch.write("report.rtf", hostile).string()),
                testing::HasSubstr("File: sda2:\\a}{{b\\par, file size: 5000000000\n"
                                   "File: twolines %s%n, file size: 1\n\n\n\nFile: last}, file size: 5\n"
                                   "Total files: 6, total size: 5000000015\nSector list:\n"
                                   "Sector: sda:/Master boot record, sector size: 512\n"));
}

} // namespace
