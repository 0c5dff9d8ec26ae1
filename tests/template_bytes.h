// Template files spelled out byte by byte, independently of the code that writes them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

struct pair_bytes {
    std::string nam, chk;
    bool operator==(const pair_bytes &) const = default;
};

// Empty when there is no such file.
inline std::string read_file(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline std::string le32_bytes(std::uint32_t value)
{
    return {static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
            static_cast<char>(value >> 24)};
}

inline std::string header_bytes(const std::string &magic, const std::map<std::size_t, std::uint32_t> &words)
{
    std::string header(1024, '\0');
    header.replace(0, 4, magic);
    for (const auto &[offset, value] : words)
        header.replace(offset, 4, le32_bytes(value));
    return header;
}

// A whole pair of list kind 2 (files) or 1 (sectors); `records` are padded to the record size.
inline pair_bytes pair_of(std::uint32_t kind, const std::string &name_path,
                          const std::vector<std::string> &records)
{
    const std::uint32_t size = kind == 2 ? 256 : 5;
    std::map<std::size_t, std::uint32_t> words = {{0x4, 1},  {0x8, 7},      {0xC, 1},      {0x54, 1},
                                                  {0x9C, 1}, {0x10C, kind}, {0x114, size}, {0x11C, 255}};
    words[0x110] = static_cast<std::uint32_t>(records.size());
    pair_bytes pair{header_bytes("SNON", words), ""};
    words.insert_or_assign(0x118, 7);
    words.insert_or_assign(0x11C, 1);
    words.insert_or_assign(0x120, 3);
    words.insert_or_assign(0x124, 1);
    words.insert_or_assign(0x1A8, 1);
    pair.chk = header_bytes("SNCV", words).replace(0x128, name_path.size(), name_path);
    for (std::string record : records) {
        record.resize(size);
        pair.nam += record;
        pair.chk += std::string(4, '\0');
    }
    return pair;
}
