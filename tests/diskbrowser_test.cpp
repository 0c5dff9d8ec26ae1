// The sector tree: whole trees of all shapes of disks, whole sequences of marks, and hostile templates.
#include "diskbrowser.h"

#include "app.h"
#include "gtk_support.h"
#include "support.h"

#include <gmock/gmock.h>

namespace {

part make_part(const std::string &kind, int index, std::uint32_t first, const char *fs)
{
    part p;
    p.index = index;
    p.sect_before = first;
    p.sect_total = kind == "extended" ? 8000 : 1000;
    p.type = kind == "free" ? 4 : 0;
    p.extended = kind == "extended";
    p.logical = kind == "logical";
    p.lvm = kind == "lvm";
    p.swap = kind == "swap";
    if (fs)
        p.fs_name = p.fs_type = fs;
    return p;
}

disk make_disk(const char *name, std::uint32_t drive_number, std::list<part> parts)
{
    for (part &p : parts)
        p.device = name;
    return {.name = name, .drive_number = drive_number, .length = 100000, .parts = std::move(parts)};
}

struct diskbrowser : testing::Test {
    diskbrowser()
    {
        app.pelva_db_path = directory.path();
        for (const auto &[field, letter] : {std::pair{&app::disk_normal, 'd'},
                                            {&app::disk_marked, 'D'},
                                            {&app::folder_normal, 'e'},
                                            {&app::folder_marked, 'E'},
                                            {&app::file_normal, 's'},
                                            {&app::file_marked, 'S'}}) {
            app.*field = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 1, 1);
            letters[app.*field] = letter;
        }
    }

    ~diskbrowser() override
    {
        g_object_unref(store);
        for (const auto &[icon, letter] : letters)
            g_object_unref(icon);
    }

    // The whole tree, a row a line: image, name, and for a sector its number, for a group the marks below.
    std::string dump(GtkTreeIter *parent = nullptr, const std::string &indent = "")
    {
        GtkTreeModel *model = GTK_TREE_MODEL(store);
        std::string text;
        GtkTreeIter row;
        for (gboolean more = gtk_tree_model_iter_children(model, &row, parent); more;
             more = gtk_tree_model_iter_next(model, &row)) {
            GdkPixbuf *icon = nullptr;
            gchar *name = nullptr;
            gboolean group = FALSE;
            gboolean marked = FALSE;
            guint sector = 0;
            gint below = 0;
            gtk_tree_model_get(model, &row, disk_column_icon, &icon, disk_column_name, &name,
                               disk_column_is_group, &group, disk_column_sector, &sector, disk_column_marked,
                               &marked, disk_column_marked_sectors, &below, -1);
            const owned_gchar owner(name);
            g_object_unref(icon);
            EXPECT_EQ(marked != 0, letters[icon] < 'a') << name;
            text += indent + letters[icon] + " " + name +
                    (group ? " <" + std::to_string(below) : " @" + std::to_string(sector)) + "\n";
            text += dump(&row, indent + "  ");
        }
        return text;
    }

    void toggle(const char *path)
    {
        GtkTreeIter row;
        ASSERT_TRUE(gtk_tree_model_get_iter_from_string(GTK_TREE_MODEL(store), &row, path));
        disk_toggle_iter(&app, store, &row);
    }

    // The saved template, with these (drive, sector) records behind a header that claims `claimed` of them.
    void save_template(const std::vector<std::pair<std::uint32_t, std::uint32_t>> &records,
                       std::uint32_t claimed) const
    {
        owned_file nam(std::fopen((directory.path() / "bootsect.nam").c_str(), "wb"));
        owned_file chk(std::fopen((directory.path() / "bootsect.chk").c_str(), "wb"));
        EXPECT_EQ(fill_structures(nam.get(), chk.get(), "C:/", claimed, list_kind::sectors), 1);
        for (const auto &[drive, sector] : records) {
            const sector_record record = make_sector_record(drive, sector);
            EXPECT_EQ(std::fwrite(&record, sizeof record, 1, nam.get()), 1U);
        }
    }

    struct app app;
    std::map<GdkPixbuf *, char> letters;
    scratch_directory directory;
    GtkTreeStore *store = disk_create_model();
    const std::list<disk> two_disks = {
        make_disk("sda", 0x80,
                  {make_part("primary", 1, 2048, "ext4"), make_part("extended", 2, 4096, nullptr),
                   make_part("logical", 5, 5000, "ntfs"), make_part("logical", 6, 7000, "fat32")}),
        // A record holds the low byte of the drive number.
        make_disk("md0", 0x181, {make_part("primary", 1, 100, "ext3")})};
};

TEST_F(diskbrowser, shows_the_sectors_that_the_board_can_check)
{
    app.disks = {
        make_disk("sda", 0x80,
                  {make_part("primary", 1, 2048, "ext4"), make_part("extended", 2, 4096, nullptr),
                   make_part("free", 3, 20000, "fat16"), make_part("lvm", 4, 30000, "ext2"),
                   make_part("logical", 5, 5000, "ntfs"), make_part("swap", 6, 6000, "ext2"),
                   make_part("logical", 7, 7000, nullptr), make_part("logical", 8, 8000, "fat32"),
                   make_part("primary", 9, 40000, nullptr), make_part("extended", 10, 50000, "xfs")}),
        make_disk("sdb", 0x81, {}),
        // A damaged list; the extended partition of the disk before is not lent to this one.
        make_disk("sdc", 0x82, {make_part("logical", 5, 4294967295U, "ext3")}),
        make_disk("md0", 0x83,
                  {make_part("primary", 1, 2048, "ext3"), make_part("extended", 2, 7, nullptr)})};
    fill_tree(&app, store);
    EXPECT_EQ(dump(), "d /dev/sda <0\n"
                      "  s Master boot record @0\n"
                      "  s Boot Sector (/dev/sda1, ext4) @2048\n"
                      "  e Extended partition (/dev/sda2) <0\n"
                      "    s Secondary MBR @4096\n"
                      "    e Logical drive (/dev/sda5, ntfs) <0\n"
                      "      s Secondary MBR @5000\n"
                      "    e Logical drive (/dev/sda8, fat32) <0\n"
                      "      s Secondary MBR @8000\n"
                      "d /dev/sdb <0\n"
                      "  s Master boot record @0\n"
                      "d /dev/sdc <0\n"
                      "  s Master boot record @0\n"
                      "  e Logical drive (/dev/sdc5, ext3) <0\n"
                      "    s Secondary MBR @4294967295\n"
                      "d /dev/md0 <0\n"
                      "  s Master boot record @0\n"
                      "  s Boot Sector (/dev/md0p1, ext3) @2048\n"
                      "  e Extended partition (/dev/md0p2) <0\n"
                      "    s Secondary MBR @7\n");
}

TEST_F(diskbrowser, marks_come_from_the_template_and_are_carried_up_and_flipped)
{
    app.disks = two_disks;
    // Also the same again, inside a partition, inside the extended partition, and outside every partition: no
    // question, which would need a display.
    save_template({{0x80, 5000}, {0x81, 100}, {0x80, 5000}, {0x80, 2050}, {0x80, 6900}, {0x80, 99999}}, 6);
    fill_tree(&app, store);
    EXPECT_EQ(dump(), "D /dev/sda <1\n"
                      "  s Master boot record @0\n"
                      "  s Boot Sector (/dev/sda1, ext4) @2048\n"
                      "  E Extended partition (/dev/sda2) <1\n"
                      "    s Secondary MBR @4096\n"
                      "    E Logical drive (/dev/sda5, ntfs) <1\n"
                      "      S Secondary MBR @5000\n"
                      "    e Logical drive (/dev/sda6, fat32) <0\n"
                      "      s Secondary MBR @7000\n"
                      "D /dev/md0 <1\n"
                      "  s Master boot record @0\n"
                      "  S Boot Sector (/dev/md0p1, ext3) @100\n");
    EXPECT_EQ(app.total_sectors_selected, 2U);
    EXPECT_EQ(app.total_sectors_size, 1024U);

    toggle("0"); // some marks below: cleared
    toggle("1:1");
    EXPECT_THAT(dump(), testing::Not(testing::ContainsRegex("[DES] |<[1-9]")));
    EXPECT_EQ(app.total_sectors_selected, 0U);

    toggle("0:2"); // none: all marked
    EXPECT_EQ(app.total_sectors_selected, 3U);
    GtkTreeIter first;
    gtk_tree_model_get_iter_from_string(GTK_TREE_MODEL(store), &first, "0:0");
    disk_mark_all(&app, store, &first);
    EXPECT_THAT(dump(), testing::StartsWith("D /dev/sda <5\n  S Master boot record @0\n  S Boot"));
    EXPECT_EQ(app.total_sectors_size, 5 * 512U);
    EXPECT_EQ(sectors_changed, 0);
}

TEST_F(diskbrowser, a_damaged_template_marks_nothing_and_asks_nothing)
{
    app.disks = two_disks;
    for (const std::uint32_t claimed : {2U, 0x7fffffffU, 0xffffffffU}) {
        save_template({{0x80, 0}}, claimed);
        captured_trace trace;
        fill_tree(&app, store);
        EXPECT_THAT(trace.messages(),
                    testing::HasSubstr("bootsect.nam contains " + std::to_string(claimed) +
                                       " sectors\nRead error\nWARNING: cannot read template for sectors\n"));
    }
    EXPECT_EQ(app.total_sectors_selected, 0U);
}

TEST_F(diskbrowser, window_asks_about_unknown_records_and_marks_by_right_click)
{
    NEED_DISPLAY();
    const loaded_windows windows;
    app.xml = windows.xml;
    app.disks = two_disks;
    save_template({{0x85, 63}, {0x80, 0}, {0x80, 100000}, {0x81, 0xfffffffeU}}, 4);
    mount_entry mount;
    mount.letter = 'C';
    app.pelva_db_mt = &mount;
    app.short_path = "";
    app.separator = '/';
    answered_dialogs user({GTK_RESPONSE_YES});
    ASSERT_EQ(diskbrowser_init(&app), 1);
    ASSERT_EQ(user.seen.size(), 1U);
    EXPECT_EQ(user.seen[0].title, "Confirm");
    EXPECT_EQ(user.seen[0].text, "The following sectors not found. Delete a sectors from a template?\n"
                                 "0x85 : 63\n0x80 : 100000\n0x81 : -2\n\n");
    std::uint32_t left = 0; // saved at once, without them
    const auto records = load_template(&app, left);
    EXPECT_EQ(find_sector_record({records.get(), left}, 0x80, 0), 0);
    EXPECT_EQ(left, 1U);
    EXPECT_EQ(windows.label("total_sectors_selected"), "1");
    EXPECT_EQ(windows.label("total_sectors_size"), "512 bytes");

    GtkTreeView *view = GTK_TREE_VIEW(app.diskbrowser);
    gtk_notebook_set_current_page(GTK_NOTEBOOK(windows.widget("pages")), 1);
    gtk_widget_show(windows.widget("window"));
    gtk_tree_view_expand_all(view);
    settle();
    const auto click = [&](const char *path, guint button) {
        GtkTreePath *at = gtk_tree_path_new_from_string(path);
        GdkRectangle area;
        gtk_tree_view_get_cell_area(view, at, gtk_tree_view_get_column(view, 0), &area);
        gtk_tree_path_free(at);
        GdkEvent *event = gdk_event_new(GDK_BUTTON_PRESS);
        event->button.window = GDK_WINDOW(g_object_ref(gtk_tree_view_get_bin_window(view)));
        event->button.button = button;
        event->button.x = area.x + 5.9;
        event->button.y = area.y + area.height / 2.0;
        gtk_widget_event(app.diskbrowser, event);
        gdk_event_free(event);
    };
    click("0:1", 1);
    EXPECT_EQ(std::exchange(sectors_changed, 0), 0);
    click("0:1", 3);
    EXPECT_EQ(std::exchange(sectors_changed, 0), 1);
    EXPECT_EQ(windows.label("total_sectors_selected"), "2");
    click("1", 3);
    EXPECT_EQ(windows.label("total_sectors_size"), "2048 bytes");
    sectors_changed = 0;
}

} // namespace
