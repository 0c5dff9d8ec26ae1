// The private temporary directory under which partitions are mounted.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

// One candidate name, "/tmp/tarnel%d" with a random number.
[[nodiscard]] std::string tmpdir_name();

// Makes a new directory with mode 0700 and returns its path; nothing after ten failed attempts.
[[nodiscard]] std::optional<std::string> mktmpdir();

// Whether the path itself, not what a link there points at, is a directory that belongs to this user and
// grants none of the permissions in `denied`. Anything else in /tmp may have been put there by somebody else.
[[nodiscard]] bool is_own_directory(const std::string &path, mode_t denied);
