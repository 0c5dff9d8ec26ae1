// What there is to say of disks that are not shown, or not read, in the user's language.
#pragma once

#include "common/disk.h"

#include <string>
#include <vector>

// Sentences that name the disks and tell why, each a paragraph; UTF-8, without a line end. Empty when there
// is nothing to say.
[[nodiscard]] std::string describe_disk_notes(const std::vector<disk_note> &notes);

// Whether there is a warning among them, and not only what the board cannot check anyway.
[[nodiscard]] bool notes_warn(const std::vector<disk_note> &notes);
