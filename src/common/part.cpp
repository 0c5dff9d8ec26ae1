#include "common/part.h"

#include "common/filesystem.h"

#include <algorithm>

const char *partition_separator(const std::string &disk_name)
{
    return disk_name.starts_with("md") ? "p" : "";
}

std::string partition_name(const part &p)
{
    return p.device + partition_separator(p.device) + std::to_string(p.index);
}

const file_system &file_system_of(const part &p)
{
    return find_file_system(p.fs_type);
}

bool is_ext_fs(const part &p)
{
    return file_system_of(p).names_in_records == record_names::as_they_are;
}

bool is_fat_fs(const part &p)
{
    return file_system_of(p).names_in_records == record_names::short_names;
}

bool is_supported_fs(const part &p)
{
    return !file_system_of(p).names.front().empty();
}

bool is_device_name(std::string_view name)
{
    const auto is_alphanumeric = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    };
    return !name.empty() && is_alphanumeric(name.front()) && std::ranges::all_of(name, [&](char c) {
        return is_alphanumeric(c) || c == '_' || c == '-' || c == '.';
    });
}
