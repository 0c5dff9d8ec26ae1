// The sector tree over disks of all shapes: its rows, the marks of a saved template, and those of the user.
#include "diskbrowser.h"

#include "app.h"
#include "gtk_support.h"
#include "start_questions.h"
#include "template_bytes.h"

#include <gmock/gmock.h>
#include <sstream>

namespace {

// Partitions are described by kind, number, first sector and file system: "logical 5 5000 ntfs".
disk make_disk(const char *name, std::uint32_t drive_number, const std::vector<std::string> &parts)
{
    disk d = {.name = name, .drive_number = drive_number, .length = 100000, .parts = {}};
    for (const std::string &text : parts) {
        part &p = d.parts.emplace_back();
        std::string kind, fs;
        std::istringstream(text) >> kind >> p.index >> p.sect_before >> fs;
        p.device = name;
        p.sect_total = kind == "extended" ? 8000 : 1000;
        p.extended = kind == "extended";
        p.logical = kind == "logical";
        p.lvm = kind == "lvm";
        p.swap = kind == "swap";
        if (!fs.empty())
            p.fs_type = fs;
    }
    return d;
}

// A record of the saved template.
std::string record(int drive_number, std::uint32_t sector)
{
    return static_cast<char>(drive_number) + le32_bytes(sector);
}

// The rows, one a line: image, name, and for a sector its number, for a group the marks below it.
std::string dump(GtkTreeModel *model, GtkTreeIter *parent = nullptr, const std::string &indent = "")
{
    std::string text;
    GtkTreeIter row;
    for (gboolean more = gtk_tree_model_iter_children(model, &row, parent); more;
         more = gtk_tree_model_iter_next(model, &row)) {
        GdkPixbuf *icon = nullptr;
        g_autofree gchar *name = nullptr;
        gboolean group = FALSE;
        guint sector = 0, below = 0;
        gtk_tree_model_get(model, &row, 0, &icon, 1, &name, 2, &group, 5, &sector, 7, &below, -1);
        const char image = "dDeEsS"[gdk_pixbuf_get_width(icon) - 1];
        g_object_unref(icon);
        text.append(indent + image + " " + name + (group ? " <" : " @"));
        text.append(std::to_string(group ? below : sector) + "\n" + dump(model, &row, indent + " "));
    }
    return text;
}

TEST(diskbrowser, shows_the_sectors_that_the_board_can_check_and_marks_them)
{
    const loaded_windows windows;
    const scratch_directory directory;
    struct app app;
    app.xml = windows.xml;
    std::vector<owned_object<GdkPixbuf>> icons; // known by their widths
    int width = 0;
    for (const auto field : {&app::disk_normal, &app::disk_marked, &app::folder_normal, &app::folder_marked,
                             &app::file_normal, &app::file_marked})
        app.*field = icons.emplace_back(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, ++width, 1)).get();
    app.disks = {
        make_disk("sda", 0x80,
                  {"primary 1 2048 ext4", "extended 2 4096", "lvm 4 30000 ext2", "logical 5 5000 ntfs",
                   "swap 6 6000 ext2", "logical 7 7000", "logical 8 8000 fat32", "primary 9 40000",
                   "extended 10 50000 xfs", "primary 11 4294969344 ext4", "primary 12 4294967296 ext4"}),
        make_disk("sdb", 0x81, {}),
        // A damaged list; the extended partition of the disk before is not lent to this one.
        make_disk("sdc", 0x82, {"logical 5 4294967295 ext3"}),
        // A record holds the low byte of the number.
        make_disk("md0", 0x183, {"primary 1 2048 ext3", "extended 2 7"})};
    app.pelva_db_mt = &app.mounts.emplace_back();
    app.pelva_db_mt->letter = 'C';
    app.pelva_db_mt->partition = &app.disks.front().parts.front();
    app.pelva_db_path = directory.path();
    app.short_path = "";
    app.separator = '/';
    // Without a row, but known: the same again, inside a partition, inside the extended partition, and
    // outside every partition.
    write_pair(directory,
               pair_of(1, "",
                       {record(0x80, 5000), record(0x83, 2048), record(0x80, 5000), record(0x80, 2050),
                        record(0x80, 10900), record(0x80, 99999), record(0x85, 63), record(0x80, 100000),
                        record(0x81, ~1U)}),
               "bootsect");
    ASSERT_TRUE(diskbrowser_init(&app));
    EXPECT_EQ(dump(gtk_tree_view_get_model(GTK_TREE_VIEW(app.diskbrowser))),
              "D /dev/sda <1\n s Master boot record @0\n s Boot Sector (/dev/sda1, ext4) @2048\n"
              " E Extended partition (/dev/sda2) <1\n  s Secondary MBR @4096\n"
              "  E Logical drive (/dev/sda5, ntfs) <1\n   S Secondary MBR @5000\n"
              "  e Logical drive (/dev/sda8, fat32) <0\n   s Secondary MBR @8000\n"
              "d /dev/sdb <0\n s Master boot record @0\n"
              "d /dev/sdc <0\n s Master boot record @0\n"
              " e Logical drive (/dev/sdc5, ext3) <0\n  s Secondary MBR @4294967295\n"
              "D /dev/md0 <1\n s Master boot record @0\n S Boot Sector (/dev/md0p1, ext3) @2048\n"
              " e Extended partition (/dev/md0p2) <0\n  s Secondary MBR @7\n");
    EXPECT_EQ(windows.label("total_sectors_size"), "1024 bytes");
    const std::string missing =
                          "Confirm: The following sectors not found. Delete a sectors from a template?\n"
                          "0x85 : 63\n0x80 : 100000\n0x81 : -2\n\n",
                      hidden = "/dev/sda : 2050\n/dev/sda : 10900\n/dev/sda : 99999\n";
    for (const int answer : {GTK_RESPONSE_NO, GTK_RESPONSE_YES}) {
        answered_dialogs user({GTK_RESPONSE_OK, answer, answer}); // first the warning of the NTFS partition
        ask_start_questions(&app);
        const bool yes = answer == GTK_RESPONSE_YES;
        EXPECT_EQ(
            app.sector_template.notices[0].text,
            yes ? ""
                : "3 sectors of the saved template are not shown in the tree. The next save drops them.");
        EXPECT_THAT(user.text,
                    testing::EndsWith(!yes ? missing
                                           : missing +
                                                 "Confirm: Do you really want to overwrite existing "
                                                 "template?\n\nThese entries of the saved template "
                                                 "are not marked and will be gone:\n" +
                                                 hidden + "\n"));
    }
    EXPECT_EQ(read_pair(directory.path(), "bootsect"),
              pair_of(1, "C:/bootsect.nam", {record(0x80, 5000), record(0x83, 2048)}));

    gtk_notebook_set_current_page(GTK_NOTEBOOK(windows.widget("pages")), 1);
    gtk_widget_show(windows.widget("window"));
    settle();
    for (const auto &[y, button, marked] :
         {std::tuple(5, 1U, "2"), {300, 3U, "2"}, {5, 3U, "1"}, {5, 3U, "6"}}) {
        GdkEventButton event = {};
        event.type = GDK_BUTTON_PRESS;
        event.button = button;
        event.y = y;
        gboolean handled = FALSE;
        g_signal_emit_by_name(app.diskbrowser, "button-press-event", &event, &handled);
        EXPECT_EQ(std::exchange(sectors_changed, 0), button == 3);
        EXPECT_EQ(windows.label("total_sectors_selected"), marked);
    }
}

} // namespace
