// The program that reads one disk with libparted, which ends or overruns its process on some damaged tables,
// and as the firmware does: a disk may also hang. gtk-tarnel starts it; table_record.h says how the two talk.
#include "common/gpt.h"
#include "common/table_record.h"
#include "tools/sandbox.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <parted/parted.h>
#include <span>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

void put_text(std::span<char> field, const char *text)
{
    if (text)
        std::snprintf(field.data(), field.size(), "%s", text);
}

// Records on their way to the parent. It is woken once for all entries, but told everything else at once:
// libparted may end this process before it says the next thing.
std::FILE *records = nullptr;

void send(const table_record &r)
{
    if (std::fwrite(&r, sizeof(r), 1, records) != 1 ||
        (r.kind != record_kind::entry && r.kind != record_kind::firmware_entry && std::fflush(records) != 0))
        _exit(1);
}

void send_kind(record_kind kind)
{
    table_record r{};
    r.kind = kind;
    send(r);
}

// libparted says these of disks that are in order: this process may open nothing for writing, and a disk
// without any partition table has none. Texts, since nothing else tells its messages apart; in the language
// "C".
bool is_usual(std::string_view message)
{
    return message.find("has been opened read-only") != message.npos ||
           message.find("unrecognised disk label") != message.npos;
}

// Answers what carries on with the data as they are: never "fix", "yes" or "retry". A read error offers to
// retry or ignore; ignoring it would parse a buffer that was never filled.
PedExceptionOption answer(PedException *exception)
{
    table_record r{};
    r.kind = is_usual(exception->message) ? record_kind::message : record_kind::complaint;
    put_text(r.text, exception->message);
    send(r);

    const unsigned options = exception->options;
    if (options & PED_EXCEPTION_RETRY)
        return PED_EXCEPTION_CANCEL;
    for (const PedExceptionOption harmless : {PED_EXCEPTION_IGNORE, PED_EXCEPTION_NO, PED_EXCEPTION_OK}) {
        if (options & harmless)
            return harmless;
    }
    return options & PED_EXCEPTION_CANCEL ? PED_EXCEPTION_CANCEL : PED_EXCEPTION_UNHANDLED;
}

void send_device(const PedDevice &device)
{
    table_record r{};
    r.kind = record_kind::device;
    r.cylinders = device.bios_geom.cylinders;
    r.heads = device.bios_geom.heads;
    r.sectors = device.bios_geom.sectors;
    r.sector_size = device.sector_size;
    r.device_length = device.length;
    put_text(r.text, device.path);
    put_text(r.model, device.model);
    send(r);
}

void send_entry(const PedPartition &partition)
{
    table_record r{};
    r.kind = record_kind::entry;
    r.number = partition.num;
    r.type = static_cast<std::int32_t>(partition.type);
    r.start = partition.geom.start;
    r.length = partition.geom.length;
    r.boot = ped_partition_get_flag(&partition, PED_PARTITION_BOOT) != 0;
    r.lvm = ped_partition_get_flag(&partition, PED_PARTITION_LVM) != 0;
    r.swap = ped_partition_get_flag(&partition, PED_PARTITION_SWAP) != 0;
    r.has_fs = partition.fs_type != nullptr;
    if (partition.fs_type)
        put_text(r.text, partition.fs_type->name);
    send(r);
}

// The probes for the Amiga's file systems search the disk's first 16 sectors for an Amiga partition table,
// and do so 18 times for every partition. Nearly all reading of a disk with many partitions was theirs.
void forget_amiga_file_systems()
{
    PedFileSystemType *next = ped_file_system_type_get_next(nullptr);
    while (PedFileSystemType *type = next) {
        next = ped_file_system_type_get_next(type);
        const std::string_view name = type->name;
        if (name.starts_with("affs") || name.starts_with("amufs") || name.starts_with("apfs") ||
            name == "asfs")
            ped_file_system_type_unregister(type);
    }
}

// Reads the whole table.
PedDisk *read_disk(PedDevice *device)
{
    const PedDiskType *type = ped_disk_probe(device);
    if (type && std::string_view(type->name) != "amiga")
        forget_amiga_file_systems();
    return ped_disk_new(device);
}

// Whether the first two sectors look like a master boot record with entries, or like a GPT header, as those
// of a disk without a table do not. A boot record's signature alone also stands on disks that hold nothing
// but a file system; what is code there has no valid status bytes. True when the sectors cannot be read.
bool shows_table(const PedDevice &device)
{
    constexpr std::size_t entries = 446, entry_size = 16, entry_end = 510, type_offset = 4;
    const auto sector_size = static_cast<std::size_t>(device.sector_size);
    std::vector<std::uint8_t> sectors(std::clamp<std::size_t>(sector_size, 512, 1U << 16) * 2);
    if (readDiskSector(device.path, 0, sectors) != 0)
        return true;
    if (std::ranges::equal(std::span(sectors).subspan(sectors.size() / 2, 8), std::string_view("EFI PART")))
        return true;
    bool used = false;
    for (std::size_t at = entries; at < entry_end; at += entry_size) {
        if ((sectors[at] & 0x7FU) != 0)
            return false;
        used = used || sectors[at + type_offset] != 0;
    }
    return used && sectors[entry_end] == 0x55 && sectors[entry_end + 1] == 0xAA;
}

// What the firmware sees of a GPT; nothing when it cannot read it.
void send_firmware_view(const char *path)
{
    const std::optional<std::vector<std::uint32_t>> numbers = readGpt(path);
    if (!numbers)
        return;
    send_kind(record_kind::firmware_table);
    for (const std::uint32_t number : *numbers) {
        table_record r{};
        r.kind = record_kind::firmware_entry;
        r.number = static_cast<std::int32_t>(number);
        send(r);
    }
}

// libparted's objects end with the process: releasing those of a damaged table could fail after all is said.
void report_device(const char *path, bool whole_table)
{
    ped_exception_set_handler(answer);
    PedDevice *device = ped_device_get(path);
    if (!device) {
        send_kind(record_kind::no_device);
        return;
    }
    send_device(*device);
    PedDisk *disk = whole_table ? read_disk(device) : nullptr;
    if (disk) {
        table_record r{};
        r.kind = record_kind::table;
        put_text(r.text, disk->type->name);
        send(r);
        PedPartition *partition = nullptr;
        while ((partition = ped_disk_next_partition(disk, partition))) {
            if (!(partition->type & PED_PARTITION_METADATA) && partition->num >= 0)
                send_entry(*partition);
        }
        if (std::string_view(disk->type->name) == "gpt")
            send_firmware_view(path);
    } else if (whole_table && shows_table(*device)) {
        send_kind(record_kind::table_traces);
    }
    send_kind(record_kind::end);
}

} // namespace

int main(int count, char **arguments)
{
    const std::string_view depth = count == 3 ? arguments[2] : "";
    if (depth != read_whole_table && depth != read_device_only) {
        std::fprintf(stderr, "This program belongs to gtk-tarnel, which starts it.\n");
        return 2;
    }
    if (!enter_sandbox())
        return reader_unconfined;
    records = fdopen(record_fd, "w");
    if (!records || std::setvbuf(records, nullptr, _IOFBF, 1 << 16) != 0)
        return 1;
    report_device(arguments[1], depth == read_whole_table);
    _exit(0); // without the exit handlers of libraries
}
