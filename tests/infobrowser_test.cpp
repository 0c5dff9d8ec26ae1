// The board layer and the information page, with libraries built here in place of those of a board.
#include "infobrowser.h"

#include "app.h"
#include "common/board.h"
#include "gtk_support.h"

#include <gtest/gtest.h>

TEST(infobrowser, shows_versions_of_whole_libraries_and_where_the_templates_lie)
{
    std::string library;
    const std::string
        board = "static volatile struct { char first[50000], last[9]; } data = {\"+\", \"the end.\"};\n"
                "extern \"C\" int pvisCard() { return data.last[7] != '.'; }\n"
                "extern \"C\" int pvGetVersion(void *version)"
                "{ __builtin_memcpy(version, \"\\x03\\xff\\x34\\x12\", 4); return STATUS; }\n",
        none = "Hardware absent                  ";
    const struct {
        std::string source;               // of the board's library
        std::string firmware, shown_path; // the latter that of the templates to the firmware
    } cases[] = {
        {"", none, "<0x80>:/\uFFFDpelva/cfg"},
        {board, none, "D:\\\uFFFDpelva\\cfg"},
        {board, "BIOS board version: 3.255.4660", "D:/\uFFFDpelva/cfg"},
    };
    for (const auto &[source, firmware, shown_path] : cases) {
        const scratch_directory root;
        const replaced_host host(root.path());
        // The one before, cut off in its data: whoever calls it crashes, and the next is asked.
        root.write("usr/lib64/libpelva.so", library.substr(0, library.size() / 2));
        const std::string directory = root.write("usr/lib/pelva.cpp", source).parent_path();
        run_tool("cd " + directory + " && c++ -shared -fPIC -o libpelva.so pelva.cpp -DSTATUS=" +
                 std::to_string(firmware == none));
        library = content_of(directory + "/libpelva.so");
        const loaded_windows windows;
        struct app app;
        app.xml = windows.xml;
        app.board = hear_board(ask_board());
        app.mounts.emplace_back().letter = shown_path[0] == 'D' ? 'D' : '\x80';
        app.pelva_db_mt = &app.mounts.back();
        app.separator = shown_path[shown_path.find(':') + 1];
        app.pelva_db_path = "/boot/\xFFpelva/cfg";
        app.short_path = "/\xFFpelva/cfg";
        const bool has_card = !source.empty();
        if (has_card)
            app.disk_notes = {{"mmcblk0", disk_note_reason::mmc}};
        EXPECT_EQ(infobrowser_init(&app), 1);
        EXPECT_EQ(gtk_widget_get_visible(windows.widget("info_disks")), has_card);
        EXPECT_EQ(app.board.present, has_card);
        EXPECT_EQ(windows.label("label_version"), "Software version: 3.0.m2-2\n" + firmware);
        EXPECT_EQ(windows.label("path_pelva"), "Path to templates for Pelva settings:\n OS ROSA Linux: "
                                               "/boot/\uFFFDpelva/cfg\n BIOS pelva: " +
                                                   shown_path);
    }
}
