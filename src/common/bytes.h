// Little-endian integers in on-disk bytes. The caller has checked that the field lies inside the span.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

using byte_span = std::span<const std::uint8_t>;

inline std::uint16_t le16(byte_span bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

inline std::uint32_t le32(byte_span bytes, std::size_t offset)
{
    return le16(bytes, offset) | static_cast<std::uint32_t>(le16(bytes, offset + 2)) << 16;
}

inline std::uint64_t le64(byte_span bytes, std::size_t offset)
{
    return le32(bytes, offset) | static_cast<std::uint64_t>(le32(bytes, offset + 4)) << 32;
}
