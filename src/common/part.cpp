#include "common/disk.h"

const char *partition_separator(const std::string &disk_name)
{
    return disk_name.starts_with("md") ? "p" : "";
}

std::string partition_name(const part &p)
{
    return p.device + partition_separator(p.device) + std::to_string(p.index);
}

int is_ext_fs(const part &p)
{
    return p.fs_type == "ext2" || p.fs_type == "ext3" || p.fs_type == "ext4";
}

bool is_fat_fs(const part &p)
{
    return p.fs_type && p.fs_type->find("fat") != std::string::npos;
}

int is_supported_fs(const part &p)
{
    return is_ext_fs(p) || p.fs_type == "fat16" || p.fs_type == "fat32" || p.fs_type == "ntfs";
}
