// Integers in network byte order, read from and written to the caller's memory.
#ifndef MURN_BUFFER_H
#define MURN_BUFFER_H

#include <cstdint>

#include "Export.h"

/// Two words of 64 bits. Buffer stores the first word in front of the second; which of them is the more significant is
/// the caller's convention.
struct uint128_t {
    std::uint64_t first;
    std::uint64_t second;
};

namespace Murn {

/// A view of memory of the caller's as a record on the wire: unsigned integers of 8 to 128 bits in network byte order,
/// big-endian, at any offset in bytes. No offset needs alignment; each access moves single bytes, which compilers turn
/// into one load or store with a byte swap.
///
///     unsigned char record[6];
///     Murn::Buffer buffer(record, sizeof record);
///     buffer.write16(0, 1);
///     buffer.write32(2, length);
///
/// There are no bounds checks, on purpose: this is for inner loops, and the caller has checked the record's length
/// once. The offset plus the width must lie within the memory. One thread at a time, not locked. Copies view the same
/// memory.
///
/// Each operation is compiled into its caller. The library has a copy of each but the constructor all the same, which
/// serves callers that only declare it.
class MURN_API Buffer {
public:
    /// @param data  the memory, which stays the caller's and outlives the view; nothing is copied
    /// @param size  its length in bytes, kept for the caller
    Buffer(void* data, unsigned long size) : _data(static_cast<unsigned char*>(data)), _size(size) {}

    MURN_API_INLINE std::uint8_t read8(unsigned long off) const { return _data[off]; }
    MURN_API_INLINE void write8(unsigned long off, unsigned char v) { _data[off] = v; }

    MURN_API_INLINE std::uint16_t read16(unsigned long off) const
    {
        const unsigned char* const at = _data + off;
        return static_cast<std::uint16_t>((static_cast<unsigned int>(at[0]) << 8) | at[1]);
    }

    MURN_API_INLINE void write16(unsigned long off, unsigned short v)
    {
        unsigned char* const at = _data + off;
        at[0] = static_cast<unsigned char>(v >> 8);
        at[1] = static_cast<unsigned char>(v);
    }

    MURN_API_INLINE std::uint32_t read32(unsigned long off) const
    {
        const unsigned char* const at = _data + off;
        return (static_cast<std::uint32_t>(at[0]) << 24) | (static_cast<std::uint32_t>(at[1]) << 16) |
               (static_cast<std::uint32_t>(at[2]) << 8) | static_cast<std::uint32_t>(at[3]);
    }

    MURN_API_INLINE void write32(unsigned long off, unsigned int v)
    {
        unsigned char* const at = _data + off;
        at[0] = static_cast<unsigned char>(v >> 24);
        at[1] = static_cast<unsigned char>(v >> 16);
        at[2] = static_cast<unsigned char>(v >> 8);
        at[3] = static_cast<unsigned char>(v);
    }

    MURN_API_INLINE std::uint64_t read64(unsigned long off) const
    {
        const unsigned char* const at = _data + off;
        return (static_cast<std::uint64_t>(at[0]) << 56) | (static_cast<std::uint64_t>(at[1]) << 48) |
               (static_cast<std::uint64_t>(at[2]) << 40) | (static_cast<std::uint64_t>(at[3]) << 32) |
               (static_cast<std::uint64_t>(at[4]) << 24) | (static_cast<std::uint64_t>(at[5]) << 16) |
               (static_cast<std::uint64_t>(at[6]) << 8) | static_cast<std::uint64_t>(at[7]);
    }

    MURN_API_INLINE void write64(unsigned long off, unsigned long v)
    {
        unsigned char* const at = _data + off;
        at[0] = static_cast<unsigned char>(v >> 56);
        at[1] = static_cast<unsigned char>(v >> 48);
        at[2] = static_cast<unsigned char>(v >> 40);
        at[3] = static_cast<unsigned char>(v >> 32);
        at[4] = static_cast<unsigned char>(v >> 24);
        at[5] = static_cast<unsigned char>(v >> 16);
        at[6] = static_cast<unsigned char>(v >> 8);
        at[7] = static_cast<unsigned char>(v);
    }

    /// @return the word at `off` as `first`, and the one behind it as `second`
    MURN_API_INLINE uint128_t read128(unsigned long off) const
    {
        const uint128_t v = {read64(off), read64(off + 8)};
        return v;
    }

    /// Stores `first` at `off`, and `second` behind it.
    MURN_API_INLINE void write128(unsigned long off, const uint128_t& v)
    {
        write64(off, v.first);
        write64(off + 8, v.second);
    }

    MURN_API_INLINE unsigned char* data() const { return _data; }
    /// @return the size given to the constructor, in bytes
    MURN_API_INLINE unsigned long size() const { return _size; }

private:
    unsigned char* _data;  // not owned
    std::uint64_t _size;
};

}  // namespace Murn

#endif
