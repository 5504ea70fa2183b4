// Integers in network byte order. One iteration goes over a record of odd length, so that most of it is unaligned.
//
//   read16 ... read128     Buffer      against an unaligned load and be16toh, be32toh, be64toh
//   write16 ... write128   Buffer      against htobe16, htobe32, htobe64 and an unaligned store
#include <endian.h>
#include <kxPAL/Buffer.h>

#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

#include "Ratio.h"

namespace {

constexpr std::size_t recordSize = 4097;

/// The floor: the system's byte swaps. Has the operations of Buffer.
class SystemBuffer {
public:
    SystemBuffer(void* data, unsigned long) : _data(static_cast<unsigned char*>(data)) {}

    std::uint16_t read16(unsigned long off) const { return be16toh(load<std::uint16_t>(off)); }
    std::uint32_t read32(unsigned long off) const { return be32toh(load<std::uint32_t>(off)); }
    std::uint64_t read64(unsigned long off) const { return be64toh(load<std::uint64_t>(off)); }
    uint128_t read128(unsigned long off) const { return {read64(off), read64(off + 8)}; }
    void write16(unsigned long off, std::uint16_t v) { store(off, htobe16(v)); }
    void write32(unsigned long off, std::uint32_t v) { store(off, htobe32(v)); }
    void write64(unsigned long off, std::uint64_t v) { store(off, htobe64(v)); }
    void write128(unsigned long off, const uint128_t& v)
    {
        write64(off, v.first);
        write64(off + 8, v.second);
    }

private:
    template <typename Word>
    Word load(unsigned long off) const
    {
        Word word;
        std::memcpy(&word, _data + off, sizeof word);
        return word;
    }

    template <typename Word>
    void store(unsigned long off, Word word)
    {
        std::memcpy(_data + off, &word, sizeof word);
    }

    unsigned char* _data;
};

template <typename View>
std::uint64_t readAt(const View& view, std::size_t off, std::size_t width)
{
    switch (width) {
        case 2:
            return view.read16(off);
        case 4:
            return view.read32(off);
        case 8:
            return view.read64(off);
        default: {
            const uint128_t value = view.read128(off);
            return value.first ^ value.second;
        }
    }
}

template <typename View>
void writeAt(View& view, std::size_t off, std::size_t width, std::uint64_t value)
{
    switch (width) {
        case 2:
            return view.write16(off, static_cast<std::uint16_t>(value));
        case 4:
            return view.write32(off, static_cast<std::uint32_t>(value));
        case 8:
            return view.write64(off, value);
        default:
            return view.write128(off, {value, value});
    }
}

template <typename View, std::size_t width>
void reading(benchmark::State& state)
{
    std::vector<unsigned char> record(recordSize);
    std::iota(record.begin(), record.end(), static_cast<unsigned char>(1));
    const View view(record.data(), record.size());
    std::uint64_t sum = 0;
    for (auto _ : state) {
        for (std::size_t off = 1; off + width <= recordSize; off += width)
            benchmark::DoNotOptimize(sum += readAt(view, off, width));
        benchmark::ClobberMemory();
    }
    require(sum != 0, "something was read");
}

template <typename View, std::size_t width>
void writing(benchmark::State& state)
{
    std::vector<unsigned char> record(recordSize);
    View view(record.data(), record.size());
    std::uint64_t value = 0x0102030405060708U;
    for (auto _ : state) {
        for (std::size_t off = 1; off + width <= recordSize; off += width)
            writeAt(view, off, width, value);
        ++value;
        benchmark::ClobberMemory();
    }
    require(record[recordSize / 2] != 0, "something was written");
}

}  // namespace

int main(int argc, char** argv)
{
    using Murn::Buffer;
    RatioTable table;
    table.compare("Buffer: read16 through 4 KiB", reading<Buffer, 2>, reading<SystemBuffer, 2>);
    table.compare("Buffer: read32 through 4 KiB", reading<Buffer, 4>, reading<SystemBuffer, 4>);
    table.compare("Buffer: read64 through 4 KiB", reading<Buffer, 8>, reading<SystemBuffer, 8>);
    table.compare("Buffer: read128 through 4 KiB", reading<Buffer, 16>, reading<SystemBuffer, 16>);
    table.compare("Buffer: write16 through 4 KiB", writing<Buffer, 2>, writing<SystemBuffer, 2>);
    table.compare("Buffer: write32 through 4 KiB", writing<Buffer, 4>, writing<SystemBuffer, 4>);
    table.compare("Buffer: write64 through 4 KiB", writing<Buffer, 8>, writing<SystemBuffer, 8>);
    table.compare("Buffer: write128 through 4 KiB", writing<Buffer, 16>, writing<SystemBuffer, 16>);
    return table.run(argc, argv);
}
