// The private temporary directory under which partitions are mounted.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

constexpr std::string_view tmpdir_prefix = "/tmp/tarnel";

// One candidate name, "/tmp/tarnel%d" with a random number.
[[nodiscard]] std::string tmpdir_name();

// Whether mktmpdir may have made a directory of this name: digits behind the prefix, or six of mkdtemp's
// characters.
[[nodiscard]] bool is_tmpdir_name(std::string_view path);

// Makes a new directory of this user's with mode 0700 and returns its path: of ten candidates, or else of a
// name that mkdtemp finds. Nothing when that fails, too.
[[nodiscard]] std::optional<std::string> mktmpdir();

// Whether the path itself, not what a link there points at, is a directory that belongs to this user and
// grants none of the permissions in `denied`. Anything else in /tmp may have been put there by somebody else.
[[nodiscard]] bool is_own_directory(const std::string &path, mode_t denied);
