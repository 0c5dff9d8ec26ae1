#include "common/gpt.h"

#include "common/bytes.h"
#include "common/host.h"
#include "common/owned.h"
#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <limits>

namespace {

constexpr std::uint64_t sector_size = 512;
constexpr std::size_t entry_size = 128;
// A table has 128 entries as a rule. A header that claims more than this many is damaged.
constexpr std::uint32_t max_entries = 4096;

using guid = std::array<std::uint8_t, 16>;

// As stored on disk: the first three groups are little-endian.
constexpr std::array<guid, 2> supported_types = {{
    // EBD0A0A2-B9E5-4433-87C0-68B6B72699C7, Basic Data
    {0xa2, 0xa0, 0xd0, 0xeb, 0xe5, 0xb9, 0x33, 0x44, 0x87, 0xc0, 0x68, 0xb6, 0xb7, 0x26, 0x99, 0xc7},
    // C12A7328-F81F-11D2-BA4B-00A0C93EC93B, EFI System
    {0x28, 0x73, 0x2a, 0xc1, 0x1f, 0xf8, 0xd2, 0x11, 0xba, 0x4b, 0x00, 0xa0, 0xc9, 0x3e, 0xc9, 0x3b},
}};

bool is_supported_type(byte_span type)
{
    return std::any_of(supported_types.begin(), supported_types.end(),
                       [&](const guid &known) { return std::ranges::equal(known, type); });
}

} // namespace

int readDiskSector(const std::string &device, std::uint64_t lba, std::span<std::uint8_t> destination)
{
    const owned_fd file(open(host_path(device).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        trace_log("Cannot open device file %s", device.c_str());
        return -1;
    }
    constexpr std::uint64_t last_lba = std::numeric_limits<off_t>::max() / sector_size;
    if (lba > last_lba || lseek(file.get(), static_cast<off_t>(lba * sector_size), SEEK_SET) < 0) {
        trace_log("Cannot seek to position %s", device.c_str());
        return -1;
    }
    if (read(file.get(), destination.data(), destination.size()) != std::ssize(destination)) {
        trace_log_open("Cannot read data from %s", device.c_str());
        return -1;
    }
    return 0;
}

std::optional<std::vector<std::uint32_t>> readGpt(const std::string &device)
{
    trace_log("***Start***");
    std::array<std::uint8_t, sector_size> header;
    if (readDiskSector(device, 1, header) != 0) {
        trace_log("Cannot read gpt header");
        return std::nullopt;
    }
    if (std::memcmp(header.data(), "EFI PART", 8) != 0 || le32(header, 84) != entry_size)
        return std::nullopt;

    const std::uint64_t first_lba = le64(header, 72);
    const std::uint32_t count = le32(header, 80);
    std::vector<std::uint8_t> entries(count <= max_entries ? count * entry_size : 0);
    if (count > max_entries || readDiskSector(device, first_lba, entries) != 0) {
        trace_log("Cannot read gpt partititons entries");
        return std::nullopt;
    }

    std::vector<std::uint32_t> numbers;
    for (std::uint32_t i = 0; i < count; i++) {
        if (!is_supported_type(byte_span(entries).subspan(i * entry_size, sizeof(guid))))
            continue;
        trace_log("Supported gpt partition found: %s%u", device.c_str(), i + 1);
        numbers.push_back(i + 1);
    }
    trace_log("***End***");
    return numbers;
}
