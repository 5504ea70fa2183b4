// Bytes that tell where they belong.
#ifndef SOAK_PATTERN_H
#define SOAK_PATTERN_H

#include <cstddef>
#include <cstdint>

/// @return the byte at an offset of what the connection of this number sends
inline char patternAt(std::uint32_t id, std::uint64_t offset)
{
    return static_cast<char>(id * 131U + offset * 7U + (offset >> 8U) * 13U + (offset >> 16U) * 29U);
}

inline void fillPattern(char* data, std::size_t size, std::uint32_t id, std::uint64_t offset)
{
    for (std::size_t index = 0; index < size; ++index)
        data[index] = patternAt(id, offset + index);
}

inline bool isPattern(const char* data, std::size_t size, std::uint32_t id, std::uint64_t offset)
{
    for (std::size_t index = 0; index < size; ++index) {
        if (data[index] != patternAt(id, offset + index))
            return false;
    }
    return true;
}

#endif
