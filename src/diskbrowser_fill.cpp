// Building the sector tree: the rows of every disk, their marks from the saved template, and which of its
// records fit nothing.
#include "app.h"
#include "common/boot_sector.h"
#include "common/owned.h"
#include "diskbrowser.h"
#include "i18n.h"
#include "trace_log.h"

#include <optional>
#include <string>
#include <vector>

namespace {

struct tree_filler {
    struct app *app;
    GtkTreeStore *store;
    std::span<const sector_record> records;
    std::vector<bool> unmatched; // one flag for each record
};

// What stands in the name of a partition's row: "/dev/md0p1, ext4" comes from these four.
owned_gchar row_name(const char *format, const disk &disk, const part &part)
{
    return owned_gchar(g_strdup_printf(format, disk.name.c_str(), partition_separator(disk.name), part.index,
                                       part.fs_type.value_or("").c_str()));
}

GtkTreeIter append_group(const tree_filler &filler, GtkTreeIter *parent, const char *name, disk &disk,
                         part *part)
{
    GtkTreeIter row;
    gtk_tree_store_append(filler.store, &row, parent);
    gtk_tree_store_set(filler.store, &row, disk_column_icon,
                       part ? filler.app->folder_normal : filler.app->disk_normal, disk_column_name, name,
                       disk_column_is_group, TRUE, disk_column_disk, &disk, disk_column_part, part, -1);
    return row;
}

// The sector is marked when the template lists it.
void append_sector(tree_filler &filler, GtkTreeIter *parent, const char *name, disk &disk, part *part)
{
    const auto sector = static_cast<std::uint32_t>(part ? part->sect_before : 0);
    GtkTreeIter row;
    gtk_tree_store_append(filler.store, &row, parent);
    gtk_tree_store_set(filler.store, &row, disk_column_icon, filler.app->file_normal, disk_column_name, name,
                       disk_column_disk, &disk, disk_column_part, part, disk_column_sector, sector, -1);
    for (std::span<const sector_record> rest = filler.records;;) {
        const std::int64_t record = find_sector_record(rest, disk.drive_number, sector);
        if (record < 0)
            break;
        disk_mark_iter(filler.app, filler.store, &row, 1);
        rest = rest.subspan(static_cast<std::size_t>(record) + 1);
        filler.unmatched[filler.records.size() - rest.size() - 1] = false;
    }
}

void append_disk(tree_filler &filler, disk &disk)
{
    const owned_gchar name(g_strdup_printf(_("/dev/%s"), disk.name.c_str()));
    GtkTreeIter disk_iter = append_group(filler, nullptr, name.get(), disk, nullptr);
    append_sector(filler, &disk_iter, _("Master boot record"), disk, nullptr);

    GtkTreeIter extended = disk_iter; // a logical drive without an extended partition stays below its disk
    for (part &part : disk.parts) {
        if (!has_boot_sector(part))
            continue;
        if (part.extended) {
            const owned_gchar text = row_name(_("Extended partition (/dev/%s%s%d)"), disk, part);
            extended = append_group(filler, &disk_iter, text.get(), disk, &part);
            append_sector(filler, &extended, _("Secondary MBR"), disk, &part);
        } else if (part.logical) {
            const owned_gchar text = row_name(_("Logical drive (/dev/%s%s%d, %s)"), disk, part);
            GtkTreeIter logical = append_group(filler, &extended, text.get(), disk, &part);
            append_sector(filler, &logical, _("Secondary MBR"), disk, &part);
        } else {
            const owned_gchar text = row_name(_("Boot Sector (/dev/%s%s%d, %s)"), disk, part);
            append_sector(filler, &disk_iter, text.get(), disk, &part);
        }
    }
}

unmarked_entry describe_unmatched(std::list<disk> &disks, const sector_record &record)
{
    if (const disk *disk = disk_of_sector(disks, record))
        return {unmarked_reason::hidden, "/dev/" + disk->name + " : " + std::to_string(sector_of(record))};
    const owned_gchar text(
        g_strdup_printf("0x%x : %d", record.drive_number, static_cast<std::int32_t>(sector_of(record))));
    return {unmarked_reason::missing, text.get()};
}

} // namespace

std::unique_ptr<sector_record[]> load_template(const struct app *app, std::uint32_t &count)
{
    std::uint32_t claimed = 0;
    auto records = read_sector_list(app->pelva_db_path, claimed);
    count = records ? claimed : 0;
    return records;
}

std::int64_t find_sector_record(std::span<const sector_record> records, std::uint32_t drive_number,
                                std::uint32_t sector)
{
    for (std::size_t i = 0; i < records.size(); ++i)
        if (records[i].drive_number == static_cast<std::uint8_t>(drive_number) &&
            sector_of(records[i]) == sector)
            return static_cast<std::int64_t>(i);
    return -1;
}

int fill_tree(struct app *app, GtkTreeStore *store)
{
    std::uint32_t count = 0;
    const auto records = load_template(app, count);
    if (!records)
        trace_log("WARNING: cannot read template for sectors");
    std::list<unmarked_entry> &unmarked = app->sector_template.unmarked;
    unmarked.clear();
    if (!records && template_exists(app->pelva_db_path, list_kind::sectors))
        unmarked.push_back({unmarked_reason::unread_template, _("The saved template cannot be read.")});
    tree_filler filler{app, store, {records.get(), count}, std::vector<bool>(count, true)};
    for (disk &disk : app->disks)
        append_disk(filler, disk);
    for (std::size_t i = 0; i < count; ++i)
        if (filler.unmatched[i])
            unmarked.push_back(describe_unmatched(app->disks, records[i]));
    return 1;
}
