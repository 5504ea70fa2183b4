// Fuzz target: integers in network byte order at any offset, against plain bytes.
#include <kxPAL/Buffer.h>

#include <vector>

#include "Input.h"

namespace {

using Murn::Buffer;

/// The same memory in the words of single bytes.
class Model {
public:
    explicit Model(std::vector<unsigned char> start) : bytes(std::move(start)) {}

    std::uint64_t read(std::size_t at, std::size_t width) const
    {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i)
            value = value << 8 | bytes[at + i];
        return value;
    }

    void write(std::size_t at, std::size_t width, std::uint64_t value)
    {
        for (std::size_t i = 0; i < width; ++i)
            bytes[at + i] = static_cast<unsigned char>(value >> (8 * (width - 1 - i)));
    }

    std::vector<unsigned char> bytes;
};

std::uint64_t readBy(const Buffer& buffer, std::size_t at, std::size_t width)
{
    switch (width) {
        case 1:
            return buffer.read8(at);
        case 2:
            return buffer.read16(at);
        case 4:
            return buffer.read32(at);
        default:
            return buffer.read64(at);
    }
}

void writeBy(Buffer& buffer, std::size_t at, std::size_t width, std::uint64_t value)
{
    switch (width) {
        case 1:
            return buffer.write8(at, static_cast<unsigned char>(value));
        case 2:
            return buffer.write16(at, static_cast<unsigned short>(value));
        case 4:
            return buffer.write32(at, static_cast<unsigned int>(value));
        default:
            return buffer.write64(at, value);
    }
}

void checkAccess(Input& input, Buffer& buffer, Model& model)
{
    const std::size_t width = input.oneOf(std::array<std::size_t, 5>{1, 2, 4, 8, 16});
    if (width > model.bytes.size())
        return;
    const std::size_t at = input.upTo(model.bytes.size() - width);
    const auto first = input.number<std::uint64_t>();
    if (width < 16) {
        FUZZ_CHECK(readBy(buffer, at, width) == model.read(at, width));
        writeBy(buffer, at, width, first);
        model.write(at, width, first);
        return;
    }
    FUZZ_CHECK(buffer.read128(at).first == model.read(at, 8) && buffer.read128(at).second == model.read(at + 8, 8));
    const uint128_t value = {first, ~first * 3};
    buffer.write128(at, value);
    model.write(at, 8, value.first);
    model.write(at + 8, 8, value.second);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::string start = input.text(64);
    std::vector<unsigned char> memory(start.begin(), start.end());
    memory.shrink_to_fit();
    Model model(memory);
    Buffer buffer(memory.data(), memory.size());
    do {
        checkAccess(input, buffer, model);
        FUZZ_CHECK(memory == model.bytes && buffer.data() == memory.data() && buffer.size() == memory.size());
    } while (!input.isEmpty());
    return 0;
}
