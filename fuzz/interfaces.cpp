// Fuzz target: lists of network interfaces from whatever the platform's queries answer.
//
// The library's lists only ever grow, on purpose. So that each input begins with empty ones, the source is compiled
// into the target, where its lists can be reached.
#include "../src/network/NetworkInterface.cpp"

#include <glib.h>

#include <deque>
#include <memory>
#include <optional>

#include "Input.h"
#include "InterposeSockets.h"

namespace {

using Murn::HostAddress;
using Murn::NetworkInterface;
using Murn::NetworkInterfaceInfo;

constexpr int fakeFd = 4711;
constexpr std::size_t nameLength = 16;
constexpr std::size_t answerAt = 16;
constexpr std::size_t answerRoom = 28;

/// One query for one name: what was asked, and what came of it.
struct Query {
    unsigned long request = 0;
    std::string field;  ///< The name's 16 bytes.
    int result = 0;
    std::string answer;  ///< The 28 bytes behind the name, afterwards.
};

/// One entry of `getifaddrs`, in memory of its own.
struct Link {
    std::unique_ptr<char[]> name;
    std::unique_ptr<sockaddr> address;
    bool hasStatistics = false;
    ifaddrs item{};
};

/// A platform that answers with what the input says, and remembers what it answered.
class Platform {
public:
    explicit Platform(Input& input) : _input(input)
    {
        configurationFails = input.byte() == 0xff;
        const std::size_t entries = input.upTo(6);
        for (std::size_t i = 0; i < entries; ++i) {
            std::string entry = input.text(20);
            entry.resize(40, input.flag() ? '\xff' : '\0');  // names without an end as well
            configuration += entry;
        }
        length = static_cast<int>(configuration.size());
        if (input.flag())
            length = static_cast<int>(input.awkward(16384));
        linksFail = input.byte() == 0xff;
        for (std::size_t count = input.upTo(6); count > 0; --count)
            makeLink(input.text(24));
    }

    bool configurationFails;
    std::string configuration;
    int length;  ///< What the platform says of the configuration's length.
    bool linksFail;
    std::vector<Query> queries;
    std::vector<std::string> physicalNames;
    int socketsLeft = 0;

private:
    void makeLink(const std::string& text)
    {
        Link& link = _links.emplace_back();
        const std::string name = text.c_str();
        link.name = std::make_unique<char[]>(name.size() + 1);
        std::memcpy(link.name.get(), name.c_str(), name.size() + 1);
        const std::uint8_t kind = _input.byte();
        if ((kind & 1) != 0) {
            link.address = std::make_unique<sockaddr>();
            link.address->sa_family = (kind & 2) != 0 ? AF_PACKET : static_cast<sa_family_t>(kind);
        }
        link.hasStatistics = (kind & 4) != 0;
        link.item.ifa_name = link.name.get();
        link.item.ifa_addr = link.address.get();
        link.item.ifa_data = link.hasStatistics ? &link.hasStatistics : nullptr;
        if (_links.size() > 1)
            (_links.end() - 2)->item.ifa_next = &link.item;
        if (link.address != nullptr && link.address->sa_family == AF_PACKET && link.hasStatistics && name != "lo")
            physicalNames.push_back(name);
    }

    static int fail(int error)
    {
        errno = error;
        return -1;
    }

    int open()
    {
        if (_input.byte() == 0xff)
            return fail(EMFILE);
        ++socketsLeft;
        return fakeFd;
    }

    int close(int fd)
    {
        FUZZ_CHECK(fd == fakeFd || fd == -1);
        socketsLeft -= fd == fakeFd;
        return fd == fakeFd ? 0 : fail(EBADF);
    }

    int answer(unsigned long request, void* argument)
    {
        if (request == SIOCGIFCONF) {
            auto* const query = static_cast<ifconf*>(argument);
            FUZZ_CHECK(query->ifc_len == 16384);
            if (configurationFails)
                return fail(EIO);
            std::memcpy(query->ifc_buf, configuration.data(), configuration.size());
            query->ifc_len = length;
            return 0;
        }
        FUZZ_CHECK(request == SIOCGIFADDR || request == SIOCGIFHWADDR);
        auto* const bytes = static_cast<char*>(argument);
        Query query{request, std::string(bytes, nameLength), 0, {}};
        // Whether it fails or not, the room may have changed.
        const std::string text = _input.text(answerRoom);
        const std::uint8_t kind = _input.byte();
        text.copy(bytes + answerAt, text.size());
        const sa_family_t family = kind % 2 == 0 ? AF_INET : AF_INET6;
        if ((kind & 8) == 0)
            std::memcpy(bytes + answerAt, &family, sizeof family);
        query.result = (kind & 0x70) == 0x70 ? fail(ENODEV) : 0;
        query.answer.assign(bytes + answerAt, answerRoom);
        queries.push_back(query);
        return query.result;
    }

    int list(ifaddrs** first)
    {
        if (linksFail)
            return fail(ENOMEM);
        *first = _links.empty() ? nullptr : &_links.front().item;
        return 0;
    }

    Input& _input;
    std::deque<Link> _links;
    Interposed<int(int, int, int)> _socket{interpose::socket, [this](auto, int, int, int) { return open(); }};
    Interposed<int(int)> _close{interpose::close, [this](auto, int fd) { return close(fd); }};
    Interposed<int(int, unsigned long, void*)> _ioctl{
        interpose::ioctl,
        [this](auto, int, unsigned long request, void* argument) { return answer(request, argument); }};
    Interposed<int(ifaddrs**)> _getifaddrs{interpose::getifaddrs,
                                           [this](auto, ifaddrs** first) { return list(first); }};
    Interposed<void(ifaddrs*)> _freeifaddrs{interpose::freeifaddrs, [this](auto, ifaddrs*) { _links.clear(); }};
};

std::vector<std::string>& messages()
{
    static std::vector<std::string> all;
    return all;
}

void take(const gchar* domain, GLogLevelFlags, const gchar* message, gpointer)
{
    const std::string text(message);
    messages().push_back(std::string(domain) + ": " + text.substr(text.find(']') + 1));
}

std::string padded(const std::string& name)
{
    std::string field = name.substr(0, nameLength);
    field.resize(nameLength, '\0');
    return field;
}

/// What should come of the answers, taken one after another.
class Expected {
public:
    explicit Expected(const Platform& platform) : _queries(platform.queries)
    {
        if (platform.configurationFails)
            logged.emplace_back("NetworkInterfac: ioctl(SIOCGIFCONF)\n");
        else
            addAddressed(platform);
        if (!platform.linksFail)
            addPhysical(platform);
        FUZZ_CHECK(_next == _queries.size());
    }

    std::vector<NetworkInterfaceInfo> addressed;
    std::vector<NetworkInterfaceInfo> physical;
    std::vector<std::string> logged;

private:
    const Query& next(unsigned long request, const std::string& name)
    {
        FUZZ_CHECK(_next < _queries.size());
        const Query& query = _queries[_next++];
        FUZZ_CHECK(query.request == request && query.field == padded(name));
        return query;
    }

    // Of the length only what has room counts, and of an entry only what is whole.
    void addAddressed(const Platform& platform)
    {
        std::string room = platform.configuration;
        room.resize(16384, '\0');
        for (int at = 0; at + 40 <= std::min(platform.length, 16384); at += 40) {
            std::string name = room.substr(static_cast<std::size_t>(at), nameLength);
            name = name.substr(0, name.find('\0'));
            if (name != "lo")
                addOne(name);
        }
    }

    void addOne(const std::string& name)
    {
        const Query& query = next(SIOCGIFADDR, name);
        if (query.result != 0) {
            logged.push_back("NetworkIf: Cant get info about " + name + "\n");
            return;
        }
        sa_family_t family = 0;
        std::memcpy(&family, query.answer.data(), sizeof family);
        if (family != AF_INET && family != AF_INET6) {
            logged.push_back("NetworkIf: unknown family for device " + name + "\n");
            return;
        }
        NetworkInterfaceInfo info;
        info.name = name;
        info.address = HostAddress(reinterpret_cast<const sockaddr*>(query.answer.data()));
        const Query& hardware = next(SIOCGIFHWADDR, name);
        if (hardware.result != 0)
            logged.emplace_back("NetworkIf: Cant get mac!\n");
        else
            std::memcpy(info.mac, hardware.answer.data() + 2, 8);
        addressed.push_back(info);
    }

    void addPhysical(const Platform& platform)
    {
        std::vector<std::string> names = platform.physicalNames;
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            const Query& hardware = next(SIOCGIFHWADDR, name);
            if (hardware.result != 0)
                continue;
            NetworkInterfaceInfo info;
            info.name = name;
            std::memcpy(info.mac, hardware.answer.data() + 2, 6);
            physical.push_back(info);
        }
    }

    const std::vector<Query>& _queries;
    std::size_t _next = 0;
};

void compare(const std::vector<NetworkInterfaceInfo>& found, const std::vector<NetworkInterfaceInfo>& expected)
{
    FUZZ_CHECK(found.size() == expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        FUZZ_CHECK(found[i].name == expected[i].name);
        FUZZ_CHECK(std::memcmp(found[i].mac, expected[i].mac, sizeof found[i].mac) == 0);
        FUZZ_CHECK(found[i].address.type() == expected[i].address.type());
        FUZZ_CHECK(found[i].address.toString() == expected[i].address.toString());
        FUZZ_CHECK(found[i].extraAddress.type() == HostAddress::Unspecified);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    g_log_set_default_handler(take, nullptr);
    messages().clear();
    Murn::interfaceCache.clear();
    Murn::physicalInterfaceCache.clear();

    Input input(data, size);
    Platform platform(input);
    NetworkInterface::reset();
    const NetworkInterface enumeration;
    const NetworkInterface again;  // asks nothing

    std::vector<NetworkInterfaceInfo> addressed;
    std::vector<NetworkInterfaceInfo> physical;
    FUZZ_CHECK(NetworkInterface::getInterfaces(addressed) && NetworkInterface::getAllPhysicalInterfaces(physical));
    const Expected expected(platform);
    compare(addressed, expected.addressed);
    compare(physical, expected.physical);
    FUZZ_CHECK(messages() == expected.logged);
    // One stays open on purpose where the physical ones are asked for, one more where there is no configuration.
    FUZZ_CHECK(platform.socketsLeft <= (platform.configurationFails ? 1 : 0) + (platform.linksFail ? 0 : 1));
    return 0;
}
