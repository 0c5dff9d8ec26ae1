// The files of a template pair and what lies beside them, and the steps in which they change and come to the
// disk. For template_pair.cpp, whose head tells why they are as they are, and template_pair_recovery.cpp.
// Where nothing else is said, false means that a call failed: the reason is traced, and in errno.
#pragma once

#include "common/file_format.h"
#include "common/owned.h"

#include <array>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace template_files {

// Of the name file and the check file; this is the order in which they are replaced.
using file_names = std::array<std::string, 2>;

// The new pair while it is being written, the old one for as long as the replacement can still be taken back,
// and the new one where remains of an earlier save lie under these names.
constexpr const char *suffixes[] = {".new", ".old", ".next"};

[[nodiscard]] file_names names_of(list_kind kind); // in use

// Nobody else uses these names; "bootfile.nam.old" may be the administrator's own copy.
[[nodiscard]] file_names beside(list_kind kind, const std::string &suffix);

// The template directory, and what was removed or replaced in it since it was last brought to the disk.
struct changes {
    int directory; // not owned
    std::vector<owned_fd> held = {};
};

// Not traced; links are not followed.
[[nodiscard]] bool exists(int directory, const std::string &name, struct stat *status);

// Null when there is no such directory.
[[nodiscard]] owned_fd open_directory(int beside, const std::string &path);
[[nodiscard]] owned_fd open_regular_file(int directory, const std::string &name);

// Always false: traces what could not be done, with the reason in errno.
bool traced_failure(const char *action, const std::string &name);

// True also without such a file.
[[nodiscard]] bool remove_file(changes &made, const std::string &name);

[[nodiscard]] bool rename_file(changes &made, const std::string &from, const std::string &to);

// Brings everything to the disk.
[[nodiscard]] bool settle(changes &made);

// The same for what was removed or renamed, of which FAT must not keep a file's new entry without losing the
// old one. Elsewhere it takes syncfs: without a journal the directory's own sync may leave entries behind.
[[nodiscard]] bool settle_entries(changes &made);

[[nodiscard]] bool remove_beside(changes &made, list_kind kind, const char *suffix);
[[nodiscard]] bool remove_all_beside(changes &made, list_kind kind); // and brings that to the disk

// A new, empty file that is not reached through anything that lay there before, with the permissions of a
// file beside it. Null when a call failed.
[[nodiscard]] owned_fd create_file(int directory, const std::string &name, mode_t mode);

// The whole of an open file under a new name.
[[nodiscard]] bool copy_file(int directory, const owned_fd &source, const std::string &to);

[[nodiscard]] bool second_name(int directory, const std::string &from, const std::string &to);

// Puts a whole pair into the place of one that is not, by second names, and brings that to the disk; a file
// of which both names are the same stands where it belongs.
[[nodiscard]] bool place(changes &made, const file_names &from, const file_names &to);

} // namespace template_files
