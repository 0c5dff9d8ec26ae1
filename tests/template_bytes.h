// Template files spelled out byte by byte, independently of the code that writes them.
#pragma once

#include "support.h"

#include <map>

struct pair_bytes {
    std::string nam, chk;
    bool operator==(const pair_bytes &) const = default;
};

using header_words = std::map<std::size_t, std::uint32_t>;

inline std::string header_bytes(const std::string &magic, const header_words &words)
{
    std::string header = magic + std::string(1020, '\0');
    for (const auto &[offset, value] : words)
        header.replace(offset, 4, le32_bytes(value));
    return header;
}

// A whole pair of list kind 2 (files) or 1 (sectors); the records are padded to the record size.
inline pair_bytes pair_of(std::uint32_t kind, const std::string &name_path, std::vector<std::string> records)
{
    const std::uint32_t size = kind == 2 ? 256 : 5, count = static_cast<std::uint32_t>(records.size());
    header_words words = {{0x4, 1},      {0x8, 7},       {0xC, 1},      {0x54, 1},   {0x9C, 1},
                          {0x10C, kind}, {0x110, count}, {0x114, size}, {0x11C, 255}};
    pair_bytes pair{header_bytes("SNON", words), ""};
    words[0x11C] = words[0x124] = words[0x1A8] = 1;
    words[0x118] = 7;
    words[0x120] = 3;
    pair.chk = header_bytes("SNCV", words).replace(0x128, name_path.size(), name_path);
    for (std::string &record : records) {
        record.resize(size);
        pair.nam += record;
        pair.chk += std::string(4, '\0');
    }
    return pair;
}

// Empty files when there are none.
inline pair_bytes read_pair(const std::filesystem::path &directory, const std::string &name = "bootfile")
{
    return {content_of(directory / (name + ".nam")), content_of(directory / (name + ".chk"))};
}

inline void write_pair(const scratch_directory &directory, const pair_bytes &pair,
                       const std::string &name = "bootfile")
{
    directory.write(name + ".nam", pair.nam);
    directory.write(name + ".chk", pair.chk);
}
