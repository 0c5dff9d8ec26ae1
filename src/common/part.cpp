#include "common/disk.h"

#include "common/filesystem.h"

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
