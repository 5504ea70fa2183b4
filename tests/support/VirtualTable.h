// Looking at an object as compiled code does: through the slots of its virtual table. Hosts built earlier and the
// functions with C linkage depend on their order.
#ifndef KXPAL_TESTS_VIRTUAL_TABLE_H
#define KXPAL_TESTS_VIRTUAL_TABLE_H

#include <cstddef>
#include <cstring>

/// The address in a slot of the object's virtual table, as the common C++ ABI of Linux lays it out: the table's
/// address is the first word of the object, a virtual destructor takes two slots, and each further operation one.
inline void* addressInSlot(const void* object, std::size_t slot)
{
    void* const* table = nullptr;
    std::memcpy(&table, object, sizeof table);
    return table[slot];
}

/// Calls the function at an address with the object, which may be null, and the arguments. The sanitizers are kept
/// out of the call itself, because they know neither such a call nor a null object.
template <typename... Arguments>
__attribute__((no_sanitize("undefined"))) void callAddress(void* address, void* object, Arguments... arguments)
{
    reinterpret_cast<void (*)(void*, Arguments...)>(address)(object, arguments...);
}

#endif
