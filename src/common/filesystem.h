// The file systems that the tool knows, small tests on paths of the running system, and two string helpers.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

// How a file's name goes into a record of the template.
enum class record_names { as_they_are, short_names, code_page_866 };

// One kind of file system, and everything that the tool does differently for it.
struct file_system {
    struct known_magic {
        std::uint32_t f_type; // of statfs(2)
        const char *trace_text;
    };
    std::array<std::string_view, 3> names{}; // libparted's; none for what the firmware cannot read
    std::array<known_magic, 3> magics{};
    record_names names_in_records = record_names::code_page_866;
    char separator = '\\';               // in the firmware's paths
    const char *mount_type = nullptr;    // null for the name itself
    const char *mount_options = "";      // behind those of every mount
    const char *mount_package = nullptr; // what may be missing when it cannot be mounted; null for nothing
};

// The kind that libparted's whole name ("fat32") belongs to; one without names for any other name.
[[nodiscard]] const file_system &find_file_system(const std::optional<std::string> &name);

// The magic number (statfs f_type) of the path's file system when it is one that the tool recognises; 0 for
// any other, and when the path cannot be queried.
[[nodiscard]] std::uint32_t check_fs_type(const std::string &path);

// Brings what was written to the directory's file system to its disk. A failure is traced.
void sync_file_system(const std::string &directory);

// Whether libmagic's MIME description of the file contains the expected text (such as "text/rtf"). Links are
// followed, so that "/proc/self/fd/9" is what the descriptor was opened for.
[[nodiscard]] bool check_mime_type(const std::string &path, const std::string &expected);

// False when a directory prefix of the absolute path is a symbolic link. The last component is not examined.
[[nodiscard]] bool check_symlink(const std::string &path);

// 0, as of a comparison, when the mode (as stat reports it) is of the kind; 1 otherwise. The path is for the
// trace only.
[[nodiscard]] int is_symlink(const std::string &path, mode_t mode);
[[nodiscard]] int is_directory(const std::string &path, mode_t mode);
[[nodiscard]] int is_regular(const std::string &path, mode_t mode);

// Formats into one static buffer of 1,024 bytes, cutting what does not fit. Valid until the next call.
[[nodiscard]] const char *static_sprintf(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Whether the text begins with every character of the prefix.
[[nodiscard]] bool has_prefix(std::string_view text, std::string_view prefix);
