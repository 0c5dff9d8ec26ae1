#include "fat_image.h"

#include "common/bytes.h"
#include "common/owned.h"

#include <cstdio>
#include <fcntl.h>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t directory_cluster = 3; // the root directory is in cluster 2

void append_short_entry(bytes &out, const std::string &name, std::uint8_t attribute, std::uint32_t cluster)
{
    out.insert(out.end(), name.begin(), name.end());
    out.push_back(attribute);
    out.resize(out.size() + 20);
    out[out.size() - 6] = static_cast<std::uint8_t>(cluster);
}

void append_long_entries(bytes &out, const std::string &name, const std::string &short_name)
{
    std::uint8_t checksum = 0;
    for (const char c : short_name)
        checksum = static_cast<std::uint8_t>((checksum << 7 | checksum >> 1) + static_cast<std::uint8_t>(c));
    static constexpr std::uint8_t offsets[] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
    const std::size_t pieces = (name.size() + 12) / 13;
    for (std::size_t piece = pieces; piece > 0; --piece) {
        const std::size_t start = out.size();
        out.resize(start + 32);
        out[start] = static_cast<std::uint8_t>(piece | (piece == pieces ? 0x40 : 0));
        out[start + 11] = 0x0F;
        out[start + 13] = checksum;
        for (std::size_t i = 0; i < 13; ++i) {
            const std::size_t at = (piece - 1) * 13 + i;
            out[start + offsets[i]] = static_cast<std::uint8_t>(at < name.size()   ? name[at]
                                                                : at > name.size() ? 0xFF
                                                                                   : 0);
            out[start + offsets[i] + 1] = at > name.size() ? 0xFF : 0;
        }
    }
}

std::string numbered(const char *format, int number)
{
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

bool write_at(int fd, std::uint64_t offset, const bytes &content)
{
    return pwrite(fd, content.data(), content.size(), static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(content.size());
}

} // namespace

bool fill_fat_image(const std::string &image, int files)
{
    const owned_fd fd(open(image.c_str(), O_RDWR | O_CLOEXEC));
    bytes boot(512);
    if (!fd || pread(fd.get(), boot.data(), boot.size(), 0) != 512)
        return false;
    const std::uint64_t sector = le16(boot, 11);
    const std::uint64_t cluster_size = boot[13] * sector;
    const std::uint64_t fat_start = le16(boot, 14) * sector;
    const std::uint64_t data_start = fat_start + le32(boot, 36) * sector * boot[16];

    bytes root;
    append_short_entry(root, "DIR        ", 0x10, directory_cluster);
    bytes directory;
    append_short_entry(directory, ".          ", 0x10, directory_cluster);
    append_short_entry(directory, "..         ", 0x10, 0);
    for (int i = 1; i <= files; ++i) {
        const std::string short_name = numbered("F%05d~1TXT", i);
        append_long_entries(directory, numbered("File of the directory %05d.txt", i), short_name);
        append_short_entry(directory, short_name, 0x20, 0);
    }
    const std::size_t clusters = directory.size() / cluster_size + 1;
    directory.resize(clusters * cluster_size);
    bytes chain;
    for (std::size_t i = 1; i <= clusters; ++i) {
        const std::size_t next = i == clusters ? 0x0FFFFFFF : directory_cluster + i;
        for (unsigned shift = 0; shift < 32; shift += 8)
            chain.push_back(static_cast<std::uint8_t>(next >> shift));
    }
    return write_at(fd.get(), data_start, root) && write_at(fd.get(), data_start + cluster_size, directory) &&
           write_at(fd.get(), fat_start + std::uint64_t{directory_cluster} * 4, chain);
}
