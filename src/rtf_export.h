// RTF report writer: puts the lists of marked files and sectors piece by piece on an open stream, as a Rich
// Text Format document in code page 1251. Operations are called in the order in which they stand here.
// Format: Microsoft "Rich Text Format (RTF) Specification", version 1.9.
#pragma once

#include "common/owned.h"

#include <cstdint>
#include <cstdio>
#include <list>
#include <memory>
#include <string>

struct rtf_report {
    std::FILE *stream; // the caller's; never closed here
    std::uint64_t file_total_size = 0;
    std::uint64_t sector_total_size = 0;
    std::int32_t file_count = 0;
    std::int32_t sector_count = 0;
    std::list<std::string> unwritten = {}; // names of files whose lines are empty
};

// Every operation but rtf_begin and re_escape always returns 0. Failed writes are not noticed here: the
// caller asks the stream.

// Writes the document's head. Null, with nothing written, when memory is short.
[[nodiscard]] std::unique_ptr<rtf_report> rtf_begin(std::FILE *stream);

int rtf_files_begin(rtf_report &report);
// Also adds the name to `unwritten` when code page 1251 cannot hold it: its line is empty then.
int rtf_file_line(rtf_report &report, const std::string &name, std::uint64_t size);
int rtf_files_end(rtf_report &report);

int rtf_sectors_begin(rtf_report &report);
int rtf_sector_line(rtf_report &report, const std::string &name, std::uint32_t size);
int rtf_sectors_end(rtf_report &report);

int rtf_end(std::unique_ptr<rtf_report> report);

// The formatted text, escaped for RTF and converted from UTF-8 to code page 1251. Empty, never null, when it
// is not valid UTF-8 or holds a character that the code page lacks.
[[nodiscard]] owned_gchar re_escape(const char *format, ...) __attribute__((format(printf, 1, 2)));
