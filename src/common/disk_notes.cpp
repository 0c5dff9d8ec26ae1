#include "common/disk_notes.h"

#include "common/owned.h"
#include "common/visible_text.h"
#include "i18n.h"

#include <algorithm>

namespace {

bool has_no_number(const disk_note &note)
{
    return note.reason <= disk_note_reason::removable;
}

// What stands in parentheses behind a name: the kind of a disk that has no number, or the note's detail.
std::string remark_on(const disk_note &note)
{
    switch (note.reason) {
    case disk_note_reason::nvme:
        return _("NVMe");
    case disk_note_reason::mmc:
        return _("eMMC or memory card");
    case disk_note_reason::behind_sdz:
        return _("behind sdz");
    case disk_note_reason::removable:
        return _("removable");
    default:
        return visible_text(std::string_view(note.detail).substr(0, note.detail.find_last_not_of(".\n ") + 1),
                            text_form::screen);
    }
}

// The sentence with the names in it, and an empty line behind it; nothing when there are none.
template<typename filter>
std::string paragraph(const std::vector<disk_note> &notes, const filter &chosen, const char *sentence)
{
    std::string names;
    for (const disk_note &note : notes) {
        if (!chosen(note))
            continue;
        names += (names.empty() ? "" : ", ") + note.name;
        if (const std::string remark = remark_on(note); !remark.empty())
            names += " (" + remark + ")";
    }
    if (names.empty())
        return "";
    const owned_gchar text(g_strdup_printf(sentence, names.c_str()));
    return std::string(text.get()) + "\n\n";
}

} // namespace

bool notes_warn(const std::vector<disk_note> &notes)
{
    return std::ranges::any_of(
        notes, [](const disk_note &note) { return note.reason >= disk_note_reason::cannot_open; });
}

std::string describe_disk_notes(const std::vector<disk_note> &notes)
{
    const auto has = [](disk_note_reason reason) {
        return [reason](const disk_note &note) { return note.reason == reason; };
    };
    std::string text = paragraph(
        notes, has(disk_note_reason::unreadable),
        _("No partition table could be read on: %s. The partitions there have no letters here, and the "
          "letters of others may be wrong. Do not trust a template before the cause is found: a damaged "
          "table, a failing disk, or more than 60 logical drives."));
    text += paragraph(
        notes, has(disk_note_reason::unknown_gpt),
        _("The board cannot read the partition table (GPT) of: %s. The partitions there have no letters "
          "here, and the letters of others may be wrong. The disk has sectors of 4,096 bytes, or its "
          "table is damaged or of an unusual form."));
    text += paragraph(
        notes, has(disk_note_reason::damaged),
        _("Something is wrong with the partition table of: %s. Partitions may be missing here, and the "
          "letters of others wrong. Do not trust a template before the table is repaired."));
    text += paragraph(
        notes, has(disk_note_reason::cannot_open),
        _("Could not be opened: %s. Such a disk has no number here, so the numbers of other disks and "
          "the letters of their partitions may be wrong. Do not trust a template before the cause is "
          "found."));
    text += paragraph(
        notes, has(disk_note_reason::any_first),
        _("From which of these disks the system starts could not be found out: %s. The board numbers "
          "that one first, so the numbers of disks and the letters of partitions may be wrong. Do not "
          "trust a template before they are known to be right."));
    text += paragraph(notes, has(disk_note_reason::not_mounted),
                      _("Could not be mounted: %s. The files there are not shown and cannot be marked."));
    text += paragraph(
        notes, has(disk_note_reason::other_type),
        _("Not shown, because the board knows only partitions of the types Basic Data and EFI System on "
          "GPT disks: %s."));
    text +=
        paragraph(notes, has_no_number,
                  _("Not shown, because the board has no number for such disks and cannot check them: %s."));
    return text.substr(0, text.find_last_not_of('\n') + 1);
}
