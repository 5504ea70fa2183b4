// Integers in network byte order. All of it is inline in the header, of which this file makes the library's copies;
// here stands what hosts may rely on beyond it.
#define MURN_API_INLINE __attribute__((visibility("default"), used))
#include "Buffer.h"

#include <type_traits>

namespace Murn {

static_assert(std::is_trivially_copyable<Buffer>::value, "views are copied freely");
static_assert(sizeof(Buffer) == 16 && std::is_standard_layout<Buffer>::value, "the address, then the size");
static_assert(sizeof(uint128_t) == 16 && std::is_trivial<uint128_t>::value, "a plain pair of words");
static_assert(sizeof(unsigned long) == sizeof(std::uint64_t), "write64() takes 64 bits");

}  // namespace Murn
