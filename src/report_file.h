// The file that a report is saved in. Its name is resolved once, when it is judged; from then on the
// directory is held by a descriptor and everything happens relative to that, so that nobody who may write
// there can lead root elsewhere in between.
#pragma once

#include "common/owned.h"

#include <string>

// Where a report goes.
struct report_place {
    owned_fd directory;
    std::string name;  // in the directory
    owned_fd old_file; // what has the name; none when nothing has
};

// Resolves an absolute path. A link in its last place is followed when it belongs to this user: anybody else
// might point it at what he may not write himself. False with the reason in errno: ENOENT also for a link
// that leads nowhere, for which `is_link` is set, EACCES for one of somebody else.
[[nodiscard]] bool find_report_place(report_place &place, const std::string &path, bool &is_link);

// Whether libmagic takes the old file for an RTF document, and it is a regular file.
[[nodiscard]] bool holds_rtf(const report_place &place);

// A file that becomes visible under its name only when it is complete; dropped before that, it leaves
// nothing.
struct report_file {
    report_file() = default;
    report_file(const report_file &) = delete;
    report_file &operator=(const report_file &) = delete;
    ~report_file();

    report_place place;
    std::string temporary; // its name until then
    owned_file stream;     // null once the file has its name
};

// Opens a new file beside the place, with the owner and permissions of the file that it is to replace; else
// it is this user's, for all to read and nobody else to write, or for fewer if the umask says so. False with
// the reason in errno: ENOENT for a place whose directory was not found.
[[nodiscard]] bool open_report_file(report_file &file, report_place place);

// Brings the file to the disk and gives it its name, which replaces nothing but the old file that was judged.
// False with the reason in errno: EEXIST when something else has got the name meanwhile.
[[nodiscard]] bool put_in_place(report_file &file);
