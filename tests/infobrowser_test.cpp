// The information page, without a board and with stand-in board libraries.
#include "infobrowser.h"

#include "app.h"
#include "gtk_support.h"
#include "support.h"

#include <gmock/gmock.h>

namespace {

struct infobrowser : testing::Test {
    infobrowser()
    {
        app.pelva_db_mt = &mount;
        mount.letter = 'D';
        app.separator = '\\';
        app.pelva_db_path = "/mnt/d/pelva/cfg";
        app.short_path = app.pelva_db_path.c_str() + 6;
    }

    struct app app;
    mount_entry mount;
};

TEST_F(infobrowser, shows_the_templates_as_the_system_and_as_the_board_name_them)
{
    NEED_DISPLAY();
    const scratch_directory empty;
    const replaced_host host(empty.path());
    const loaded_windows windows;
    app.xml = windows.xml;
    EXPECT_EQ(infobrowser_init(&app), 1);
    EXPECT_EQ(windows.label("label_version"),
              "Software version: 3.0.m2-2\nHardware absent                  ");
    EXPECT_EQ(windows.label("path_pelva"), "Path to templates for Pelva settings:\n"
                                           " OS ROSA Linux: /mnt/d/pelva/cfg\n BIOS pelva: D:\\pelva\\cfg");

    app.separator = '/';
    app.pelva_db_path = "/boot/\xFFpelva";
    app.short_path = app.pelva_db_path.c_str() + 5;
    EXPECT_EQ(infobrowser_init(&app), 1);
    EXPECT_EQ(windows.label("path_pelva"), "Path to templates for Pelva settings:\n"
                                           " OS ROSA Linux: /boot/\uFFFDpelva\n BIOS pelva: D:/\uFFFDpelva");
}

TEST_F(infobrowser, shows_the_firmware_of_a_board_only_when_it_answers)
{
    NEED_DISPLAY();
    const loaded_windows windows;
    app.xml = windows.xml;
    for (const std::string status : {"0", "1"}) {
        const scratch_directory root;
        const replaced_host host(root.path());
        const std::string library = root.path() / "usr/lib/libpelva.so";
        const auto source =
            root.write("usr/lib/pelva.cpp",
                       "extern \"C\" int pvisCard() { return 0; }\n"
                       "extern \"C\" int pvGetVersion(char *version)"
                       "{ __builtin_memcpy(version, \"\\x03\\xff\\x34\\x12\", 4); return STATUS; }\n");
        std::string compile = "c++ -shared -fPIC -DSTATUS=";
        compile.append(status).append(" -o ").append(library).append(" ").append(source.string());
        run_tool(compile);
        captured_trace trace;
        EXPECT_EQ(infobrowser_init(&app), 1);
        EXPECT_EQ(windows.label("label_version"),
                  status == "0" ? "Software version: 3.0.m2-2\nBIOS board version: 3.255.4660"
                                : "Software version: 3.0.m2-2\nHardware absent                  ");
        EXPECT_THAT(trace.messages(),
                    testing::StartsWith(
                        status == "0"
                            ? "Package version: 3.0.m2-2\nHW version: 3.255.4660\n"
                            : "pvGetVersion() failed\nPackage version: 3.0.m2-2\nHW version: 0.0.0\n"));
    }
}

} // namespace
