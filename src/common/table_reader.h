// The child process in which libparted reads a partition table, and the records that it sends to its parent.
#pragma once

#include "common/partition_table.h"

#include <climits>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <type_traits>

enum class record_kind : std::uint32_t { device = 1, no_device, table, entry, message, end };

// Both ends of the pipe are this program, so a record travels as its bytes. A damaged disk may have damaged
// the child, though: the parent checks what it receives.
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

// What the child does with its life. It sends the device (or that there is none), the table if one was
// found, its entries and the end, between them libparted's messages. It never returns to the caller's code,
// runs no exit handlers and touches no stream of the parent.
[[noreturn]] void run_table_reader(int pipe, pid_t parent, const std::string &path, table_depth depth);
