// Whether the board will find what the saved templates name, and find it as it was when they were saved. All
// is looked up on what is mounted now; nothing is mounted or changed.
#pragma once

#include "common/board_path.h"
#include "common/file_format.h"
#include "common/owned.h"

#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

enum class entry_state {
    unchanged,
    gone,    // there is no such file, partition, disk or boot sector
    changed, // the file's status (ctime, or mtime if later) after the template was saved
    unknown, // its partition is not mounted as a whole, or something is mounted in the way, or it cannot be
             // read
};

// When a list was saved: as its name file was last written, which of the times that a file has is the one
// that a copy or backup of the directory keeps.
class save_time {
public:
    save_time() = default; // no template
    save_time(const std::string &directory, list_kind kind);

    // False without a template, and when that time lies ahead, as after a clock was put back.
    [[nodiscard]] bool is_known() const { return saved_.has_value(); }

    // Whether a file's status is later. False when the time is not known.
    [[nodiscard]] bool is_before(const struct stat &status) const;

private:
    std::optional<timespec> saved_;
    timespec now_{};
};

[[nodiscard]] entry_state check_sector(environment &env, const sector_record &record);

// For the file records of one template. A directory stays open until a record lies elsewhere, so it costs
// least when they come in the order of the tree.
class file_check {
public:
    // The template is the one in `pelva_db_path`.
    explicit file_check(environment &env);

    // Otherwise no file is said to be unchanged.
    [[nodiscard]] bool knows_time() const { return saved_.is_known(); }

    // A record of the template.
    [[nodiscard]] entry_state state_of(board_names &names, const std::string &record);

private:
    struct open_directory {
        std::string path;
        owned_fd file;
        std::set<std::string, std::less<>> mounted; // entries that hold something else
    };

    [[nodiscard]] entry_state missing() const;
    [[nodiscard]] entry_state look_up(const part &partition, std::string_view path);
    [[nodiscard]] entry_state go_to_root(const part &partition);
    [[nodiscard]] entry_state go_to(const part &partition, std::string_view directory);
    [[nodiscard]] entry_state judge(const std::string &name) const;

    environment &env_;
    save_time saved_;
    const part *partition_ = nullptr;
    dev_t dev_ = 0;                   // of the partition's files
    std::vector<open_directory> way_; // from the partition's root to the directory last looked into
};
