// Code pages: the firmware's names are code page 866, FAT long names UTF-16LE, everything else here UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Converts a text up to its first NUL (for source names containing "utf-16": up to its first zero 16-bit
// unit). Nothing when any character cannot be converted or the result would exceed 4,095 bytes.
[[nodiscard]] std::optional<std::string> pvl_iconv(std::string_view text, const char *source,
                                                   const char *target);

// Replaces every `find` by `put`, in place.
void replace_symbols(std::string &text, char find, char put);

// Turns into '/' every back-slash that follows an existing directory, in place; back-slashes inside file
// names stay. A path of 4,096 bytes or more is left alone.
void replace_backslash(std::string &path);
