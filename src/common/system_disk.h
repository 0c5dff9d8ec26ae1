// Which disk the system runs from: the board's firmware numbers it first.
#pragma once

#include <optional>
#include <string>
#include <vector>

// The one of these devices (such as /dev/sda) that carries the root file system, as /sys says: of several
// that carry it together, the first. When /sys names none of them, the only one of which lsblk says so.
// Nothing when it cannot be told.
[[nodiscard]] std::optional<std::string> find_system_disk(const std::vector<std::string> &devices);
