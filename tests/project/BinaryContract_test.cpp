// What programs that were built earlier rely on, class by class: each virtual table as the Itanium C++ ABI lays it out,
// slot by slot, with nothing behind the last; each class's base, at offset 0; and each size.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <kxPAL/Murn.h>
#include <link.h>

#include <algorithm>
#include <cstddef>
#include <list>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "Sanitizers.h"

namespace {

using Murn::EntryInfo;
using Murn::HostAddress;

// The sizes, in bytes, of what hosts create, embed and derive from.
constexpr std::size_t text = sizeof(std::string);
static_assert(sizeof(Murn::Application) == 16 && sizeof(Murn::Thread) == 16 && sizeof(Murn::EventQueue) == 16, "");
static_assert(sizeof(Murn::Mutex) == 8 && sizeof(Murn::MutexLocker) == 8 && sizeof(Murn::Cond) == 8, "");
static_assert(sizeof(Murn::Event) == 32 && sizeof(Murn::DeleteLaterEvent) == 32 && sizeof(Murn::Object) == 32, "");
static_assert(sizeof(Murn::Timer) == 24 && sizeof(Murn::ThreadPool) == 8 && sizeof(Murn::Runnable) == 8, "");
static_assert(sizeof(HostAddress) == 32 && sizeof(Murn::Socket) == 16 && sizeof(Murn::TcpSocket) == 16, "");
static_assert(sizeof(Murn::UdpSocket) == 16 && sizeof(Murn::TcpServer) == 16 && sizeof(Murn::AsyncTcpServer) == 24, "");
static_assert(sizeof(Murn::IStreamReadHandler) == 8 && sizeof(Murn::IStream) == 8 && sizeof(Murn::Stream) == 40, "");
static_assert(sizeof(Murn::TcpStream) == 56 && sizeof(Murn::NetworkInterfaceInfo) == text + 80, "");
static_assert(std::is_empty<Murn::NetworkInterface>::value, "");
static_assert(sizeof(Murn::MulticastUdpSocket) == 8 + 24 + 8 + sizeof(std::list<HostAddress*>), "");
static_assert(sizeof(Murn::LogHandler) == 16 + text && sizeof(Murn::Plugin) == 40 + text, "");
static_assert(sizeof(Murn::File) == 24 + text && sizeof(Murn::Dir) == 8 + text && sizeof(EntryInfo) == 8 + text, "");
static_assert(sizeof(Murn::Buffer) == 16 && sizeof(uint128_t) == 16, "");
static_assert(sizeof(Murn::DateTime) == 16 && sizeof(kxClock) == 24, "");

constexpr const char* pureVirtual = "__cxa_pure_virtual";

struct Table {
    const char* name;                // as it is mangled: a number of letters and the letters
    const char* base;                // the same, or null
    std::vector<const char*> slots;  // the symbols of what is in them

    std::string mangled() const { return "N4Murn" + std::string(name) + "E"; }
    bool isAbstract() const { return std::find(slots.begin(), slots.end(), pureVirtual) != slots.end(); }
    std::string destructor(const char* variant) const { return "_ZN4Murn" + std::string(name) + variant + "Ev"; }

    friend std::ostream& operator<<(std::ostream& os, const Table& table)
    {
        const std::string mangled = table.name;
        return os << mangled.substr(mangled.find_first_not_of("0123456789"));
    }
};

constexpr const char* complete = "D1";  // the destructor that leaves the memory alone
constexpr const char* deleting = "D0";  // and the one that frees it

const std::vector<Table> tables = {
    {"5Event", nullptr, {complete, deleting, "_ZN4Murn5Event7destroyEv"}},
    {"16DeleteLaterEvent", "5Event", {complete, deleting, "_ZN4Murn5Event7destroyEv"}},
    {"10EventQueue", nullptr, {complete, deleting}},
    {"6Object", nullptr, {complete, deleting, "_ZN4Murn6Object5eventEPNS_5EventE", "_ZN4Murn6Object7destroyEv"}},
    {"6Thread", nullptr, {complete, deleting, "_ZN4Murn6Thread3runEv"}},
    {"11Application", nullptr, {complete, deleting}},
    {"5Timer", nullptr, {complete, deleting, "_ZN4Murn5Timer7timeoutEv"}},
    {"8Runnable", nullptr, {complete, deleting, pureVirtual}},
    {"6Socket", nullptr, {complete, deleting}},
    {"9TcpSocket", "6Socket", {complete, deleting}},
    {"9TcpServer", "6Socket", {complete, deleting}},
    {"9UdpSocket", "6Socket", {complete, deleting}},
    {"14AsyncTcpServer", "9TcpServer", {complete, deleting, pureVirtual}},
    {"18IStreamReadHandler", nullptr, {complete, deleting, pureVirtual}},
    {"7IStream",
     nullptr,
     {complete, deleting, pureVirtual, pureVirtual, pureVirtual, "_ZN4Murn7IStream12moveToThreadEPNS_6ThreadE",
      "_ZN4Murn7IStream23detachFromCurrentThreadEv", "_ZN4Murn7IStream14attachToThreadEPNS_6ThreadE"}},
    {"6Stream",
     "7IStream",
     {complete, deleting, "_ZN4Murn6Stream9writeDataEPKvm",
      "_ZN4Murn6Stream13asyncReadDataEPvmPNS_18IStreamReadHandlerE", "_ZN4Murn6Stream5closeEv",
      "_ZN4Murn7IStream12moveToThreadEPNS_6ThreadE", "_ZN4Murn6Stream23detachFromCurrentThreadEv",
      "_ZN4Murn6Stream14attachToThreadEPNS_6ThreadE"}},
    {"9TcpStream",
     "6Stream",
     {complete, deleting, "_ZN4Murn6Stream9writeDataEPKvm",
      "_ZN4Murn6Stream13asyncReadDataEPvmPNS_18IStreamReadHandlerE", "_ZN4Murn6Stream5closeEv",
      "_ZN4Murn7IStream12moveToThreadEPNS_6ThreadE", "_ZN4Murn6Stream23detachFromCurrentThreadEv",
      "_ZN4Murn6Stream14attachToThreadEPNS_6ThreadE"}},
    {"18MulticastUdpSocket", nullptr, {complete, deleting}},
    // No destructor: a handler is its host's.
    {"10LogHandler", nullptr, {pureVirtual}},
    {"6Plugin",
     "6Object",
     {complete, deleting, "_ZN4Murn6Object5eventEPNS_5EventE", "_ZN4Murn6Plugin7destroyEv",
      "_ZN4Murn6Plugin9canUnloadEv", pureVirtual, pureVirtual, pureVirtual}},
    {"4File", nullptr, {complete, deleting}},
    {"3Dir", nullptr, {complete, deleting}},
    {"8DateTime", nullptr, {complete, deleting}},
};

// The library's own definition, whatever the test program has a copy of.
void* inLibrary(const std::string& symbol)
{
    static void* const library = ::dlopen("libkxPAL_impl.so", RTLD_NOW);
    return library != nullptr ? ::dlsym(library, symbol.c_str()) : nullptr;
}

std::size_t sizeOfSymbol(const void* address)
{
    Dl_info info = {};
    const ElfW(Sym)* symbol = nullptr;
    if (::dladdr1(address, &info, reinterpret_cast<void**>(const_cast<ElfW(Sym)**>(&symbol)), RTLD_DL_SYMENT) == 0)
        return 0;
    return symbol != nullptr ? symbol->st_size : 0;
}

class VirtualTable : public ::testing::TestWithParam<Table> {
protected:
    void* expectedIn(const char* slot) const
    {
        if (slot == complete || slot == deleting)
            return inLibrary(GetParam().destructor(slot));
        return inLibrary(slot);
    }
};

TEST_P(VirtualTable, hasTheSlotsThatHostsExpectAndNoOther)
{
    // In front of the slots: the offset to the top of the object, and the type.
    constexpr std::size_t header = 2;
    auto* const* const table = static_cast<void**>(inLibrary("_ZTV" + GetParam().mangled()));
    ASSERT_NE(table, nullptr);

    EXPECT_EQ(table[0], nullptr);
    EXPECT_EQ(table[1], inLibrary("_ZTI" + GetParam().mangled()));
    for (std::size_t slot = 0; slot < GetParam().slots.size(); ++slot) {
        // There is no object of an abstract class alone to destroy, so gcc may leave its destructors out.
        const bool destructor = GetParam().slots[slot] == complete || GetParam().slots[slot] == deleting;
        if (destructor && GetParam().isAbstract() && table[header + slot] == nullptr)
            continue;
        ASSERT_NE(expectedIn(GetParam().slots[slot]), nullptr) << GetParam().slots[slot];
        EXPECT_EQ(table[header + slot], expectedIn(GetParam().slots[slot])) << "slot " << slot;
    }
    // The address sanitizer leaves room behind what it watches.
    if (KXPAL_TESTS_ADDRESS_SANITIZER == 0) {
        EXPECT_EQ(sizeOfSymbol(table), (header + GetParam().slots.size()) * sizeof(void*));
    }
}

TEST_P(VirtualTable, belongsToAClassWithOneBaseAtTheStartOrNone)
{
    // The ABI's classes for that, behind the header of whose own tables the first word of a type points.
    constexpr const char* withoutBase = "_ZTVN10__cxxabiv117__class_type_infoE";
    constexpr const char* withOneBase = "_ZTVN10__cxxabiv120__si_class_type_infoE";
    auto* const* const type = static_cast<void**>(inLibrary("_ZTI" + GetParam().mangled()));
    ASSERT_NE(type, nullptr);
    const bool derived = GetParam().base != nullptr;
    auto* const* const kind = static_cast<void**>(::dlsym(RTLD_DEFAULT, derived ? withOneBase : withoutBase));
    ASSERT_NE(kind, nullptr);

    EXPECT_EQ(type[0], kind + 2);
    if (derived) {
        EXPECT_EQ(type[2], inLibrary("_ZTIN4Murn" + std::string(GetParam().base) + "E"));
    }
}

INSTANTIATE_TEST_SUITE_P(Classes, VirtualTable, ::testing::ValuesIn(tables), ::testing::PrintToStringParamName());

TEST(BinaryContract, keepsValuesWithoutVirtualTables)
{
    ASSERT_NE(inLibrary("_ZTVN4Murn6ObjectE"), nullptr);
    for (const char* const name : {"5Mutex", "11MutexLocker", "4Cond", "10ThreadPool", "11HostAddress",
                                   "16NetworkInterface", "20NetworkInterfaceInfo", "6Logger", "6Buffer", "9EntryInfo"})
        EXPECT_EQ(inLibrary("_ZTVN4Murn" + std::string(name) + "E"), nullptr) << name;
    EXPECT_EQ(inLibrary("_ZTV7kxClock"), nullptr);
}

}  // namespace
