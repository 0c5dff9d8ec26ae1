#include "rtf_export.h"

#include "support.h"

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <libintl.h>
#include <utility>

namespace {

using lines = std::vector<std::pair<std::string, std::uint64_t>>;

constexpr const char *head = "{\\rtf1\\ansi\\ansicpg1251\\deff0\\deflang1049\\plain {\n";

std::string document(const lines &files, const lines &sectors)
{
    char *bytes = nullptr;
    std::size_t size = 0;
    owned_file stream(open_memstream(&bytes, &size));
    auto report = rtf_begin(stream.get());
    EXPECT_EQ(rtf_files_begin(*report), 0);
    for (const auto &[name, length] : files)
        EXPECT_EQ(rtf_file_line(*report, name, length), 0);
    EXPECT_EQ(rtf_files_end(*report), 0);
    EXPECT_EQ(rtf_sectors_begin(*report), 0);
    for (const auto &[name, length] : sectors)
        EXPECT_EQ(rtf_sector_line(*report, name, static_cast<std::uint32_t>(length)), 0);
    EXPECT_EQ(rtf_sectors_end(*report), 0);
    EXPECT_EQ(rtf_end(std::move(report)), 0);
    stream.reset();
    const owned_cstring owner(bytes);
    return {bytes, size};
}

TEST(rtf_export, writes_every_piece_byte_for_byte)
{
    EXPECT_EQ(document({}, {}), std::string(head) + "{\\b Report}\\par\n"
                                                    "{\\i File list:}\\par\n"
                                                    "{\\b Total files: 0, total size: 0}\\par\n"
                                                    "{\\i Sector list:}\\par\n"
                                                    "{\\b Total sectors: 0, total size: 0}\\par\n"
                                                    "}}\n");
    EXPECT_EQ(document({{"sda2:\\a{b}c.txt", 5000000000}, {"sda1:/отчёт", 7}, {"sda1:/%s%n", 1}},
                       {{"sda:/Master boot record", 512}, {"sdb:/x", 512}}),
              std::string(head) + "{\\b Report}\\par\n"
                                  "{\\i File list:}\\par\n"
                                  "File: sda2:\\\\a\\{b\\}c.txt, file size: 5000000000\\line\n"
                                  "File: sda1:/\xEE\xF2\xF7\xB8\xF2, file size: 7\\line\n"
                                  "File: sda1:/%s%n, file size: 1\\line\n"
                                  "{\\b Total files: 3, total size: 5000000008}\\par\n"
                                  "{\\i Sector list:}\\par\n"
                                  "Sector: sda:/Master boot record, sector size: 512\\line\n"
                                  "Sector: sdb:/x, sector size: 512\\line\n"
                                  "{\\b Total sectors: 2, total size: 1024}\\par\n"
                                  "}}\n");
}

TEST(rtf_export, what_the_code_page_lacks_leaves_an_empty_piece)
{
    for (const std::string name : {"漢字", "lone\xFF", "cut\xD0", "\x80{"}) {
        captured_trace trace;
        EXPECT_THAT(document({{name, 3}, {"next", 4}}, {}),
                    testing::HasSubstr("{\\i File list:}\\par\n\\line\nFile: next, file size: 4\\line\n"
                                       "{\\b Total files: 2, total size: 7}"))
            << name;
        EXPECT_THAT(trace.messages(), testing::StartsWith("g_convert() failed: ")) << name;
    }
}

TEST(rtf_export, texts_come_from_the_catalogue)
{
    if (!std::setlocale(LC_ALL, "C.UTF-8"))
        GTEST_SKIP() << "no C.UTF-8 locale";
    const scratch_directory catalogues;
    catalogues.write("ru.po", "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n"
                              "msgid \"Report\"\nmsgstr \"Отчёт {\"\n"
                              "msgid \"File: %s, file size: %llu\"\nmsgstr \"Файл %s (%llu)\"\n");
    catalogues.write("ru/LC_MESSAGES/keep", "");
    const std::string directory = catalogues.path();
    run_tool("msgfmt -o " + directory + "/ru/LC_MESSAGES/gtk-tarnel.mo " + directory + "/ru.po");
    setenv("LANGUAGE", "ru", 1);
    bindtextdomain("gtk-tarnel", directory.c_str());
    bind_textdomain_codeset("gtk-tarnel", "UTF-8");
    const std::string text = document({{"x", 9}}, {});
    unsetenv("LANGUAGE");
    std::setlocale(LC_ALL, "C"); // also makes gettext forget what it looked up
    EXPECT_THAT(text, testing::HasSubstr("{\\b \xCE\xF2\xF7\xB8\xF2 \\{}\\par\n"));
    EXPECT_THAT(text, testing::HasSubstr("\n\xD4\xE0\xE9\xEB x (9)\\line\n"));
}

TEST(rtf_export, another_reader_finds_every_row)
{
    if (!have_tool("unrtf"))
        GTEST_SKIP() << "unrtf is not installed";
    const scratch_directory scratch;
    const auto file = scratch.write(
        "report.rtf",
        document({{"sda2:\\a}{{b\\par", 1}, {"sda1:/two\nlines", 2}, {"sda1:/\x80", 3}, {"sda1:/last}", 4}},
                 {{"sda:/Master boot record", 512}}));
    const std::string text = run_tool("unrtf --text --quiet " + file.string());
    EXPECT_THAT(text, testing::HasSubstr("File: sda2:\\a}{{b\\par, file size: 1\n"
                                         "File: sda1:/twolines, file size: 2\n"
                                         "\n"
                                         "File: sda1:/last}, file size: 4\n"
                                         "Total files: 4, total size: 10\n"
                                         "Sector list:\n"
                                         "Sector: sda:/Master boot record, sector size: 512\n"
                                         "Total sectors: 1, total size: 512"));
}

} // namespace
