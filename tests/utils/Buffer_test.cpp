// Integers in network byte order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Buffer.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <type_traits>
#include <vector>

namespace {

using Murn::Buffer;
using ::testing::Each;
using ::testing::ElementsAre;

using Bytes = std::vector<unsigned char>;

constexpr unsigned char untouched = 0xee;

/// The bytes that a write leaves in a record of its own.
template <typename Write>
Bytes writtenBy(std::size_t size, Write write)
{
    Bytes bytes(size, untouched);
    Buffer buffer(bytes.data(), bytes.size());
    write(buffer);
    return bytes;
}

static_assert(std::is_same<decltype(std::declval<const Buffer&>().read8(0)), std::uint8_t>::value, "8 bits");
static_assert(std::is_same<decltype(std::declval<const Buffer&>().read16(0)), std::uint16_t>::value, "16 bits");
static_assert(std::is_same<decltype(std::declval<const Buffer&>().read32(0)), std::uint32_t>::value, "32 bits");
static_assert(std::is_same<decltype(std::declval<const Buffer&>().read64(0)), std::uint64_t>::value, "64 bits");
static_assert(!std::is_polymorphic<Buffer>::value, "no virtual operations");
static_assert(std::is_trivially_copyable<Buffer>::value, "freely copyable");

TEST(Buffer, storesTheAddressThenTheSize)
{
    unsigned char memory[3];
    const Buffer buffer(memory, 3);
    unsigned char* address = nullptr;
    std::uint64_t size = 0;
    ASSERT_EQ(sizeof buffer, sizeof address + sizeof size);
    std::memcpy(&address, &buffer, sizeof address);
    std::memcpy(&size, reinterpret_cast<const char*>(&buffer) + sizeof address, sizeof size);
    EXPECT_EQ(address, memory);
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(buffer.data(), memory);
    EXPECT_EQ(buffer.size(), 3U);
}

TEST(Buffer, writesTheMostSignificantByteFirst)
{
    EXPECT_THAT(writtenBy(3, [](Buffer& buffer) { buffer.write8(1, 0x12); }), ElementsAre(untouched, 0x12, untouched));
    EXPECT_THAT(writtenBy(2, [](Buffer& buffer) { buffer.write16(0, 0x1234); }), ElementsAre(0x12, 0x34));
    EXPECT_THAT(writtenBy(4, [](Buffer& buffer) { buffer.write16(1, 0x8001); }),
                ElementsAre(untouched, 0x80, 0x01, untouched));
    EXPECT_THAT(writtenBy(6, [](Buffer& buffer) { buffer.write32(1, 0x81020384U); }),
                ElementsAre(untouched, 0x81, 0x02, 0x03, 0x84, untouched));
    EXPECT_THAT(writtenBy(10, [](Buffer& buffer) { buffer.write64(1, 0x8102030405060788UL); }),
                ElementsAre(untouched, 0x81, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x88, untouched));
}

TEST(Buffer, readsTheMostSignificantByteFirst)
{
    unsigned char memory[] = {0x00, 0x81, 0x02, 0x03, 0x84, 0x05, 0x06, 0x07, 0x88, 0x00};
    const Buffer buffer(memory, sizeof memory);
    EXPECT_EQ(buffer.read8(1), 0x81U);
    EXPECT_EQ(buffer.read16(1), 0x8102U);
    EXPECT_EQ(buffer.read32(1), 0x81020384U);
    EXPECT_EQ(buffer.read64(1), 0x8102038405060788UL);

    unsigned char four[] = {0x01, 0x02, 0x03, 0x04};
    EXPECT_EQ(Buffer(four, 4).read32(0), 0x01020304U);
}

TEST(Buffer, storesTheFirstWordBeforeTheSecond)
{
    const uint128_t value = {0x0102030405060708UL, 0x1112131415161718UL};
    const Bytes bytes = writtenBy(18, [&](Buffer& buffer) { buffer.write128(1, value); });
    EXPECT_THAT(bytes, ElementsAre(untouched, 1, 2, 3, 4, 5, 6, 7, 8, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,
                                   untouched));

    Bytes copy = bytes;
    const uint128_t read = Buffer(copy.data(), copy.size()).read128(1);
    EXPECT_EQ(read.first, value.first);
    EXPECT_EQ(read.second, value.second);
}

TEST(Buffer, isAViewAndSoAreItsCopies)
{
    unsigned char memory[4] = {};
    Buffer buffer(memory, sizeof memory);
    Buffer copy = buffer;
    copy.write32(0, 0x01020304);
    EXPECT_EQ(buffer.read32(0), 0x01020304U);
    EXPECT_THAT(memory, ElementsAre(1, 2, 3, 4));
}

TEST(Buffer, consultsNoSize)
{
    unsigned char memory[16] = {};
    Buffer buffer(memory, 0);
    buffer.write64(8, 0x0102030405060708UL);
    EXPECT_EQ(buffer.read64(8), 0x0102030405060708UL);
    EXPECT_EQ(memory[15], 8);
}

/// A page of memory between two that cannot be touched, so that a byte too many ends the process.
class GuardedPage {
public:
    GuardedPage()
        : _size(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))),
          _whole(
              static_cast<unsigned char*>(::mmap(nullptr, 3 * _size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
          _usable(::mprotect(_whole + _size, _size, PROT_READ | PROT_WRITE) == 0)
    {
    }
    ~GuardedPage() { ::munmap(_whole, 3 * _size); }

    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;

    unsigned char* data() const { return _usable ? _whole + _size : nullptr; }
    std::size_t size() const { return _size; }

private:
    std::size_t _size;
    unsigned char* _whole;
    bool _usable;
};

std::uint64_t patternAt(std::size_t offset)
{
    return 0x9e3779b97f4a7c15UL * (offset + 1);
}

/// Writes and reads at every offset of a page at which the width fits, and looks at the bytes around.
template <typename Write, typename Read>
void tryEveryOffset(std::size_t width, Write write, Read read)
{
    const GuardedPage page;
    ASSERT_NE(page.data(), nullptr);
    Buffer buffer(page.data(), page.size());
    for (std::size_t offset = 0; offset + width <= page.size(); ++offset) {
        std::memset(page.data(), untouched, page.size());
        write(buffer, offset);
        ASSERT_TRUE(read(buffer, offset)) << "offset " << offset;
        const Bytes before(page.data(), page.data() + offset);
        const Bytes behind(page.data() + offset + width, page.data() + page.size());
        ASSERT_TRUE(before == Bytes(before.size(), untouched)) << "offset " << offset;
        ASSERT_TRUE(behind == Bytes(behind.size(), untouched)) << "offset " << offset;
    }
}

TEST(Buffer, readsBackAtEveryOffsetOfAPage)
{
    tryEveryOffset(
        1, [](Buffer& buffer, std::size_t at) { buffer.write8(at, static_cast<unsigned char>(patternAt(at))); },
        [](Buffer& buffer, std::size_t at) { return buffer.read8(at) == static_cast<std::uint8_t>(patternAt(at)); });
    tryEveryOffset(
        2, [](Buffer& buffer, std::size_t at) { buffer.write16(at, static_cast<unsigned short>(patternAt(at))); },
        [](Buffer& buffer, std::size_t at) { return buffer.read16(at) == static_cast<std::uint16_t>(patternAt(at)); });
    tryEveryOffset(
        4, [](Buffer& buffer, std::size_t at) { buffer.write32(at, static_cast<unsigned int>(patternAt(at))); },
        [](Buffer& buffer, std::size_t at) { return buffer.read32(at) == static_cast<std::uint32_t>(patternAt(at)); });
    tryEveryOffset(
        8, [](Buffer& buffer, std::size_t at) { buffer.write64(at, patternAt(at)); },
        [](Buffer& buffer, std::size_t at) { return buffer.read64(at) == patternAt(at); });
    tryEveryOffset(
        16,
        [](Buffer& buffer, std::size_t at) {
            buffer.write128(at, {patternAt(at), patternAt(at + 1)});
        },
        [](Buffer& buffer, std::size_t at) {
            const uint128_t read = buffer.read128(at);
            return read.first == patternAt(at) && read.second == patternAt(at + 1);
        });
}

}  // namespace
