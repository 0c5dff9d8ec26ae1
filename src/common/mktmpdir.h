// The private temporary directory under which partitions are mounted.
#pragma once

#include <optional>
#include <string>

// One candidate name, "/tmp/tarnel%d" with a random number.
[[nodiscard]] std::string tmpdir_name();

// Makes a new directory with mode 0700 and returns its path; nothing after ten failed attempts.
[[nodiscard]] std::optional<std::string> mktmpdir();
