// How the program and its table reader, a small program of its own that reads one disk with libparted, talk:
// the reader is started as `read-table DEVICE table` or `read-table DEVICE device`, with one descriptor to
// which it writes records.
#pragma once

#include <climits>
#include <cstdint>
#include <type_traits>

constexpr const char *table_reader_program = "/usr/libexec/gtk-tarnel/read-table";
constexpr const char *read_whole_table = "table";
constexpr const char *read_device_only = "device"; // no more than what it is
constexpr int record_fd = 3;                       // of the reader
constexpr int reader_unconfined = 3;               // its exit status when it could not give up its rights

// The reader sends the device (or that there is none), the table if one was found, its entries and the end,
// between them libparted's messages; of a table that is in order it has no complaint. Whether the firmware
// can read a GPT it says with "firmware_table", and with "firmware_entry" which numbers it knows there; of a
// disk on which libparted finds no table, with "table_traces" whether it seems to have one.
enum class record_kind : std::uint32_t {
    device = 1,
    no_device,
    table,
    entry,
    message,
    complaint,
    firmware_table,
    firmware_entry,
    table_traces,
    end
};

// Both programs are built together, so a record travels as its bytes. A damaged disk may have damaged the
// reader, though: what it sends is checked.
struct table_record {
    record_kind kind;
    std::int32_t cylinders, heads, sectors;
    std::int64_t sector_size, device_length;
    std::int64_t start, length;
    std::int32_t number, type;
    std::uint32_t boot, lvm, swap, has_fs;
    char text[1024]; // path of the device, type of the table, name of the file system, or the message
    char model[256];
};
static_assert(std::is_trivially_copyable_v<table_record>);
static_assert(sizeof(table_record) <= PIPE_BUF); // so that no write is ever split
