// The board layer and the information page, with stand-in libraries built here as a board's package would
// install them.
#include "infobrowser.h"

#include "app.h"
#include "common/board.h"
#include "gtk_support.h"

#include <gtest/gtest.h>

namespace {

TEST(infobrowser, shows_versions_of_whole_libraries_and_where_the_templates_lie)
{
    const std::string longest(255, 'p');
    std::string library;
    const std::string
        card = "static volatile struct { char first[50000], last[9]; } data = {\"+\", \"the end.\"};\n"
               "extern \"C\" int pvisCard() { return data.last[7] != '.'; }\n",
        none = "Hardware absent                  ",
        version = "extern \"C\" int pvGetVersion(void *version)"
                  "{ __builtin_memcpy(version, \"\\x03\\xff\\x34\\x12\", 4); return STATUS; }\n";
    const struct {
        std::string source;         // of the board's library; empty when it is no library
        std::string firmware, path; // shown, and of the templates, five characters of it the mount directory
        std::string shown_paths;
        bool card; // what is made of it
        char separator;
    } cases[] = {
        {"", none, "/mnt0/pelva/cfg", "/mnt0/pelva/cfg\n BIOS pelva: D:\\pelva\\cfg", false, '\\'},
        {version, none, "/boot/" + longest, "/boot/" + longest + "\n BIOS pelva: D:/" + longest, false, '/'},
        {card + version, none, "/boot", "/boot\n BIOS pelva: D:", true, '\\'},
        {card + version, "BIOS board version: 3.255.4660", "/boot/\xFFpelva",
         "/boot/\uFFFDpelva\n BIOS pelva: D:/\uFFFDpelva", true, '/'},
    };
    for (const auto &c : cases) {
        const scratch_directory root;
        const replaced_host host(root.path());
        // The one before, cut off in its data: whoever calls it crashes, and the next is asked.
        root.write("usr/lib64/libpelva.so", library.substr(0, library.size() / 2));
        const std::string directory = root.write("usr/lib/pelva.cpp", c.source).parent_path();
        if (!c.source.empty())
            run_tool("cd " + directory + " && c++ -shared -fPIC -o libpelva.so pelva.cpp -DSTATUS=" +
                     std::to_string(c.firmware == none));
        const loaded_windows windows;
        library = content_of(directory + "/libpelva.so");
        struct app app;
        app.xml = windows.xml;
        app.board = hear_board(ask_board());
        app.mounts.emplace_back().letter = 'D';
        app.pelva_db_mt = &app.mounts.back();
        app.separator = c.separator;
        app.pelva_db_path = c.path;
        app.short_path = app.pelva_db_path.c_str() + 5;
        if (c.card)
            app.disk_notes = {{"mmcblk0", disk_note_reason::mmc}};
        EXPECT_EQ(infobrowser_init(&app), 1);
        EXPECT_EQ(windows.label("disk_notes").find("mmcblk0") != std::string::npos, c.card);
        EXPECT_EQ(gtk_widget_get_visible(windows.widget("info_disks")), c.card);
        EXPECT_EQ(app.board.present, c.card);
        EXPECT_EQ(windows.label("label_version"), "Software version: 3.0.m2-2\n" + c.firmware);
        int width = 0;
        pango_layout_get_pixel_size(gtk_label_get_layout(GTK_LABEL(windows.widget("path_pelva"))), &width,
                                    nullptr);
        EXPECT_LE(width, 700);
        EXPECT_EQ(windows.label("path_pelva"),
                  "Path to templates for Pelva settings:\n OS ROSA Linux: " + c.shown_paths);
    }
}

} // namespace
