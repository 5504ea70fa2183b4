// Looking at an object as compiled code does: through the slots of its virtual table. Hosts built earlier and the
// functions with C linkage depend on their order.
#ifndef KXPAL_TESTS_VIRTUAL_TABLE_H
#define KXPAL_TESTS_VIRTUAL_TABLE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

/// The address in a slot of the object's virtual table, as the common C++ ABI of Linux lays it out: the table's
/// address is the first word of the object, a virtual destructor takes two slots, and each further operation one.
inline void* addressInSlot(const void* object, std::size_t slot)
{
    void* const* table = nullptr;
    std::memcpy(&table, object, sizeof table);
    return table[slot];
}

/// Whether the operation is called through a slot. The ABI represents a pointer to a member function by the function's
/// address, which is even, and one to a virtual member function by its slot's offset in bytes plus one.
template <typename MemberFunction>
bool isVirtual(MemberFunction function)
{
    std::uintptr_t representation = 0;
    std::memcpy(&representation, &function, sizeof representation);
    return (representation & 1U) != 0;
}

/// The number of a virtual operation's slot, counted from 0, for operations that a test can only name.
template <typename MemberFunction>
std::size_t virtualSlot(MemberFunction function)
{
    std::uintptr_t representation = 0;
    std::memcpy(&representation, &function, sizeof representation);
    return (representation - 1) / sizeof(void*);
}

/// Calls the function at an address with the object, which may be null, and the arguments. The sanitizers are kept
/// out of the call itself, because they know neither such a call nor a null object.
template <typename... Arguments>
__attribute__((no_sanitize("undefined"))) void callAddress(void* address, void* object, Arguments... arguments)
{
    reinterpret_cast<void (*)(void*, Arguments...)>(address)(object, arguments...);
}

#endif
