// The program that reads one disk with libparted, which ends or overruns its process on some damaged tables.
// gtk-tarnel starts it; table_record.h says how the two talk.
#include "common/table_record.h"
#include "tools/sandbox.h"

#include <array>
#include <cstdio>
#include <parted/parted.h>
#include <span>
#include <string_view>
#include <unistd.h>

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
        (r.kind != record_kind::entry && std::fflush(records) != 0))
        _exit(1);
}

void send_kind(record_kind kind)
{
    table_record r{};
    r.kind = kind;
    send(r);
}

// Answers what carries on with the data as they are: never "fix", "yes" or "retry". A read error offers to
// retry or ignore; ignoring it would parse a buffer that was never filled.
PedExceptionOption answer(PedException *exception)
{
    table_record r{};
    r.kind = record_kind::message;
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
