// The library's own copies of what Buffer.h has inline, for a host that has another declaration only.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>

struct uint128_t {
    std::uint64_t first;
    std::uint64_t second;
};

namespace Murn {

class Buffer {
public:
    Buffer(void* data, unsigned long size) : _data(static_cast<unsigned char*>(data)), _size(size) {}

    std::uint8_t read8(unsigned long off) const;
    std::uint16_t read16(unsigned long off) const;
    std::uint32_t read32(unsigned long off) const;
    std::uint64_t read64(unsigned long off) const;
    uint128_t read128(unsigned long off) const;
    void write8(unsigned long off, unsigned char v);
    void write16(unsigned long off, unsigned short v);
    void write32(unsigned long off, unsigned int v);
    void write64(unsigned long off, unsigned long v);
    void write128(unsigned long off, const uint128_t& v);
    unsigned char* data() const;
    unsigned long size() const;

private:
    unsigned char* _data;
    std::uint64_t _size;
};

}  // namespace Murn

namespace {

using Bytes = std::array<unsigned char, 32>;

class BufferCopies : public ::testing::Test {
protected:
    // The bytes of a record of which so many, from the second on, are counted up from 1.
    static Bytes counted(std::size_t count)
    {
        Bytes bytes{};
        for (std::size_t i = 1; i <= count; ++i)
            bytes.at(i) = static_cast<unsigned char>(i);
        return bytes;
    }

    Bytes _bytes{};
    Murn::Buffer _buffer{_bytes.data(), _bytes.size()};
};

TEST_F(BufferCopies, viewTheMemory)
{
    EXPECT_EQ(_buffer.data(), _bytes.data());
    EXPECT_EQ(_buffer.size(), 32U);
}

TEST_F(BufferCopies, write)
{
    _buffer.write8(1, 0x01);
    EXPECT_EQ(_bytes, counted(1));
    _buffer.write16(1, 0x0102);
    EXPECT_EQ(_bytes, counted(2));
    _buffer.write32(1, 0x01020304);
    EXPECT_EQ(_bytes, counted(4));
    _buffer.write64(1, 0x0102030405060708);
    EXPECT_EQ(_bytes, counted(8));
    _buffer.write128(1, {0x0102030405060708, 0x090a0b0c0d0e0f10});
    EXPECT_EQ(_bytes, counted(16));
}

TEST_F(BufferCopies, read)
{
    _bytes = counted(16);
    EXPECT_EQ(_buffer.read8(1), 0x01U);
    EXPECT_EQ(_buffer.read16(1), 0x0102U);
    EXPECT_EQ(_buffer.read32(1), 0x01020304U);
    EXPECT_EQ(_buffer.read64(1), 0x0102030405060708U);
    EXPECT_EQ(_buffer.read128(1).first, 0x0102030405060708U);
    EXPECT_EQ(_buffer.read128(1).second, 0x090a0b0c0d0e0f10U);
}

}  // namespace
