// What the fuzz targets share: how an input is taken apart, and what a broken property does.
#ifndef KXPAL_FUZZ_INPUT_H
#define KXPAL_FUZZ_INPUT_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

/// A target: does what the bytes say and checks what must hold. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the process when a property does not hold; libFuzzer keeps the input then.
#define FUZZ_CHECK(property)                                                            \
    do {                                                                                \
        if (!(property)) {                                                              \
            std::fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #property); \
            std::abort();                                                               \
        }                                                                               \
    } while (false)

/// The bytes of one input, taken from the front. An input that has run out yields zeros, so that every input means
/// something. libFuzzer's own FuzzedDataProvider comes with clang alone, and a corpus must mean the same everywhere.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : _data(data), _size(size) {}

    bool isEmpty() const { return _size == 0; }

    std::uint8_t byte()
    {
        if (_size == 0)
            return 0;
        --_size;
        return *_data++;
    }

    bool flag() { return (byte() & 1) != 0; }

    /// A number of any value, the least significant byte first.
    template <typename Number>
    Number number()
    {
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < sizeof(Number); ++i)
            bits |= static_cast<std::uint64_t>(byte()) << (8 * i);
        return static_cast<Number>(bits);
    }

    /// From 0 to the limit, which is included.
    std::size_t upTo(std::size_t limit) { return (limit < 256 ? byte() : number<std::uint32_t>()) % (limit + 1); }

    template <typename Value, std::size_t count>
    Value oneOf(const std::array<Value, count>& values)
    {
        return values[upTo(count - 1)];
    }

    /// A number that code tends to get wrong: around the one given, around zero, or at the ends of the type.
    long awkward(long around)
    {
        constexpr long largest = std::numeric_limits<long>::max();
        const std::uint8_t kind = byte();
        const auto little = static_cast<std::int8_t>(byte());
        switch (kind % 8) {
            case 0:
            case 1:
                return little;
            case 2:
            case 3:
                return around + little;
            case 4:
                return static_cast<long>(number<std::uint16_t>());
            case 5:
                return little < 0 ? std::numeric_limits<long>::min() - (1 + little) : largest - little;
            case 6:
                return std::numeric_limits<std::int32_t>::max() + static_cast<long>(little);
            default:
                return number<long>();
        }
    }

    /// At most so many bytes, of any value.
    std::string text(std::size_t most = 255)
    {
        const std::size_t length = std::min(upTo(most), _size);
        std::string bytes(reinterpret_cast<const char*>(_data), length);
        _data += length;
        _size -= length;
        return bytes;
    }

    /// All that is left.
    std::string rest()
    {
        std::string bytes(reinterpret_cast<const char*>(_data), _size);
        _data += std::exchange(_size, 0);
        return bytes;
    }

private:
    const std::uint8_t* _data;
    std::size_t _size;
};

#endif
