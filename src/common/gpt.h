// GPT reader: which entries of a GPT disk carry one of the partition types that the firmware supports.
// Layout: UEFI specification, "GUID Partition Table (GPT) Disk Layout"; sectors of 512 bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// Fills the destination with the bytes that begin at byte lba * 512 of the device file.
// Returns 0, or -1 when they cannot all be read.
[[nodiscard]] int readDiskSector(const std::string &device, std::uint64_t lba,
                                 std::span<std::uint8_t> destination);

// Partition numbers (entry position + 1, ascending) of the Basic Data and EFI System entries of a device
// such as /dev/sda. Nothing when the firmware cannot read the table: it looks for the primary one in the
// second 512 bytes of any disk and knows entries of 128 bytes only.
[[nodiscard]] std::optional<std::vector<std::uint32_t>> readGpt(const std::string &device);
