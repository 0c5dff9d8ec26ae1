#include "common/board_path.h"

#include "common/environment.h"
#include "common/fat_name.h"
#include "common/filesystem.h"
#include "common/iconvert.h"
#include "common/letters.h"
#include "common/owned.h"
#include "trace_log.h"

#include <algorithm>
#include <utility>

namespace {

// Letter, colon and separator at the start of a board path.
constexpr std::size_t prefix_length = 3;

// The letter stays: behind 'Z' it is a character code and no text.
std::optional<std::string> convert_behind_letter(const std::string &path, const char *to, const char *from)
{
    const owned_gchar converted(g_convert(path.c_str() + 1, -1, to, from, nullptr, nullptr, nullptr));
    if (converted)
        return path[0] + std::string(converted.get());
    trace_log("Cannot convert filename to codepage 866: %s", path.c_str());
    trace_log("* Failed");
    return std::nullopt;
}

// The component as it is, in code page 866, when that is its short name but for case; else the short name.
std::string keep_case(const std::string &component, const std::string &short_name)
{
    const std::string as_it_is = pvl_iconv(component, "utf8", "cp866").value_or("");
    std::string folded = as_it_is, folded_short = short_name;
    fold_short_name(folded);
    fold_short_name(folded_short);
    return folded == folded_short ? as_it_is : short_name;
}

// The first component of a path, which loses it.
std::string take_component(std::string &path)
{
    const std::size_t end = std::min(path.find('\\'), path.size());
    std::string component = path.substr(0, end);
    path.erase(0, end + 1);
    return component;
}

} // namespace

board_names::board_names(std::function<void(const std::function<void()> &work)> wait) : wait_(std::move(wait))
{
}

fat_lookups &board_names::fat_of(const part &partition)
{
    if (synced_.insert(partition_name(partition)).second && partition.mount_point)
        wait_([&] { sync_file_system(*partition.mount_point); });
    return fat_;
}

std::optional<std::string> board_names::of_file(const part &partition, const std::string &path)
{
    switch (file_system_of(partition).names_in_records) {
    case record_names::as_they_are:
        return path;
    case record_names::code_page_866:
        return convert_behind_letter(path, "CP866", "UTF-8");
    case record_names::short_names:
        break;
    }
    trace_log("fs = %s, start convert filename to sfn-path:, path_buf = %s", partition.fs_type->c_str(),
              path.c_str());
    const std::optional<std::string> names = fat_of(partition).find(
        partition_name(partition), path.substr(prefix_length), fat_direction::long_to_short);
    if (!names) {
        trace_log("Get sfn-path error!");
        return std::nullopt;
    }
    return path.substr(0, prefix_length) + *names;
}

std::optional<std::string> board_names::directory_on_fat(const part &partition, const std::string &path)
{
    std::string shown = path.substr(prefix_length), known = path.substr(0, prefix_length - 1);
    std::optional<std::string> names = fat_of(partition).find_directory(partition_name(partition), shown);
    while (names && !names->empty() && !shown.empty()) {
        const std::string component = take_component(shown);
        known += '\\' + keep_case(component, take_component(*names));
    }
    return names && names->empty() && shown.empty() ? std::optional(known) : std::nullopt;
}

std::optional<std::string> board_names::of_template_directory(const environment &env)
{
    const part &partition = *env.pelva_db_mt->partition;
    std::string path = env.short_path;
    path.erase(path.find_last_not_of('/') + 1);
    if (!env.pelva_db_mt->letter || holds_separator(partition, path)) {
        trace_log("The board has no name for the template directory");
        return std::nullopt;
    }
    std::ranges::replace(path, '/', env.separator);
    path.insert(0, {env.pelva_db_mt->letter, ':'});
    if (is_fat_fs(partition))
        return path.size() < prefix_length ? path : directory_on_fat(partition, path);
    return of_file(partition, path); // there directories are named like files
}

std::string board_names::with_long_names(const part &partition, const std::string &record,
                                         const std::string &name)
{
    const std::string tail = name.size() > prefix_length ? name.substr(prefix_length) : "";
    const std::optional<std::string> path =
        fat_of(partition).find(partition_name(partition), tail, fat_direction::short_to_long);
    if (path)
        return record.substr(0, prefix_length) + *path;
    trace_log("Cannot convert filename %s to LFN-path", name.c_str());
    trace_log("* Failed");
    return name;
}

std::optional<std::string> board_names::decode(std::list<disk> &disks, const std::string &record)
{
    trace_log("Search part for label: %c", record.empty() ? '\0' : record[0]);
    const part *partition = record.empty() ? nullptr : find_part_by_label(disks, record[0]);
    const bool code_page = partition ? !is_ext_fs(*partition) : record.substr(0, 3).ends_with(":\\");
    if (!code_page)
        return record;
    trace_log("Convert %s from CP866 to UTF-8", record.c_str());
    const std::optional<std::string> name = convert_behind_letter(record, "UTF-8", "CP866");
    trace_log("Convertation finished!");
    if (!name)
        return std::nullopt;
    trace_log("Converted success: %s", name->c_str());
    return partition && is_fat_fs(*partition) ? with_long_names(*partition, record, *name) : name;
}

std::optional<std::string> board_names::shown_path(const part &partition, const std::string &record)
{
    std::string path = record.substr(std::min(record.size(), prefix_length - 1));
    if (is_ext_fs(partition)) {
        if (!path.empty())
            std::ranges::replace(path, path[0], '/');
        return path;
    }
    std::optional<std::string> names = pvl_iconv(path, "cp866", "utf-8");
    if (!names)
        return std::nullopt;
    std::ranges::replace(*names, '/', '\\'); // the board knows no name with either of them
    if (is_fat_fs(partition)) {
        names = fat_of(partition).find(partition_name(partition), *names, fat_direction::short_to_long);
        return names ? std::optional('/' + *names) : std::nullopt;
    }
    std::ranges::replace(*names, '\\', '/');
    return names;
}

bool board_names::can_read(const part &partition)
{
    return is_fat_fs(partition) && fat_of(partition).can_read(partition_name(partition));
}

std::string local_path(const part &partition, const std::string &mountpoint, const std::string &tail)
{
    std::string path = mountpoint;
    if (file_system_of(partition).names_in_records == record_names::code_page_866) {
        // Names may hold back-slashes themselves: only those become '/' that follow an existing directory.
        replace_symbols(path, '/', '\\');
        path += tail;
        replace_backslash(path);
        return path;
    }
    path += tail;
    if (!tail.empty())
        std::replace(path.begin() + static_cast<std::ptrdiff_t>(mountpoint.size()), path.end(), tail[0], '/');
    return path;
}
