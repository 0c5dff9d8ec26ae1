// The file whose lock lets only one copy run. It lies where everybody may make files.
#pragma once

#include "common/owned.h"

#include <string>

// Opens the file, or makes it: root's (this user's) with mode 0600, so that nobody else can take its lock.
// What lies there and is no such file, or can be written by others, is removed once. None with the reason in
// errno. Closed on exec: a file system's daemon that mount leaves behind must not keep the lock.
[[nodiscard]] owned_fd open_lock_file(const std::string &path);
