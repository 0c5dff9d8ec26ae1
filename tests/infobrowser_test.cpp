// The information page, without a board and with stand-in board libraries.
#include "infobrowser.h"

#include "app.h"
#include "gtk_support.h"
#include "support.h"

#include <gmock/gmock.h>

namespace {

TEST(infobrowser, shows_versions_and_where_the_templates_lie)
{
    NEED_DISPLAY();
    const std::string absent = "Hardware absent                  ";
    const struct {
        std::string query; // what the board's library answers to the version query; empty without a library
        char separator;
        std::string path; // of the templates, five characters of it the mount directory
        std::string firmware, trace, paths;
    } cases[] = {
        {"", '\\', "/mnt0/pelva/cfg", absent, "HW version: 0.0.0",
         "/mnt0/pelva/cfg\n BIOS pelva: D:\\pelva\\cfg"},
        {"1", '/', "/boot/\xFFpelva", absent, "HW version: 0.0.0",
         "/boot/\uFFFDpelva\n BIOS pelva: D:/\uFFFDpelva"},
        {"0", '/', "/boot", "BIOS board version: 3.255.4660", "HW version: 3.255.4660",
         "/boot\n BIOS pelva: D:"},
    };
    for (const auto &c : cases) {
        const scratch_directory root;
        const replaced_host host(root.path());
        const std::string library =
            root.write("usr/lib/pelva.cpp",
                       "extern \"C\" int pvisCard() { return 0; }\n"
                       "extern \"C\" int pvGetVersion(char *version)"
                       "{ __builtin_memcpy(version, \"\\x03\\xff\\x34\\x12\", 4); return STATUS; }\n");
        if (!c.query.empty())
            run_tool("c++ -shared -fPIC -DSTATUS=" + c.query + " -o " +
                     (root.path() / "usr/lib/libpelva.so ").string() + library);
        const loaded_windows windows;
        struct app app;
        app.xml = windows.xml;
        app.mounts.emplace_back().letter = 'D';
        app.pelva_db_mt = &app.mounts.back();
        app.separator = c.separator;
        app.pelva_db_path = c.path;
        app.short_path = app.pelva_db_path.c_str() + 5;
        captured_trace trace;
        EXPECT_EQ(infobrowser_init(&app), 1);
        EXPECT_THAT(trace.messages(), testing::HasSubstr("Package version: 3.0.m2-2\n" + c.trace + "\n"));
        EXPECT_EQ(windows.label("label_version"), "Software version: 3.0.m2-2\n" + c.firmware);
        EXPECT_EQ(windows.label("path_pelva"),
                  "Path to templates for Pelva settings:\n OS ROSA Linux: " + c.paths);
    }
}

} // namespace
