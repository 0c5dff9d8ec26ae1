// Small tests on paths of the running system, and two string helpers that many modules use.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>

// The magic number (statfs f_type) of the path's file system when it is one that the tool recognises; 0 for
// any other, and when the path cannot be queried.
[[nodiscard]] std::uint32_t check_fs_type(const std::string &path);

// 1 when libmagic's MIME description of the file contains the expected text (such as "text/rtf"), else 0.
[[nodiscard]] int check_mime_type(const std::string &path, const std::string &expected);

// 0 when a directory prefix of the absolute path is a symbolic link, 1 otherwise. The last component is not
// examined.
[[nodiscard]] int check_symlink(const std::string &path);

// 0 when the mode (as stat reports it) is of the kind, 1 otherwise. The path is for the trace only.
[[nodiscard]] int is_symlink(const std::string &path, mode_t mode);
[[nodiscard]] int is_directory(const std::string &path, mode_t mode);
[[nodiscard]] int is_regular(const std::string &path, mode_t mode);

// Formats into one static buffer of 1,024 bytes, cutting what does not fit. Valid until the next call.
[[nodiscard]] const char *static_sprintf(const char *format, ...) __attribute__((format(printf, 1, 2)));

// 1 when the text begins with every character of the prefix, else 0.
[[nodiscard]] int has_prefix(std::string_view text, std::string_view prefix);
