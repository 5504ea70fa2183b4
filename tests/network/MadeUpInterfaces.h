// Network interfaces that do not exist, for tests of what lists them.
#ifndef KXPAL_TESTS_MADE_UP_INTERFACES_H
#define KXPAL_TESTS_MADE_UP_INTERFACES_H

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "InterposeSockets.h"
#include "Loopback.h"

/// The bytes of a socket address of either family, as a query answers with them.
inline Bytes socketAddress(const char* text)
{
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    if (::inet_pton(AF_INET, text, &ipv4.sin_addr) == 1)
        return bytesOf(ipv4);
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ::inet_pton(AF_INET6, text, &ipv6.sin6_addr);
    return bytesOf(ipv6);
}

/// The bytes of a socket address of a family with nothing in it.
inline Bytes emptyAddress(sa_family_t family)
{
    sockaddr address{};
    address.sa_family = family;
    return bytesOf(address);
}

/// While it lives, the platform's interface queries know nothing but what the test fills in, and each new socket is a
/// number, from 4711 on.
class MadeUpInterfaces {
public:
    /// What the queries for one name answer; without an answer they fail.
    struct Device {
        std::optional<Bytes> address;   ///< A socket address.
        std::optional<Bytes> hardware;  ///< The first bytes of the hardware address.
    };

    /// One entry of `getifaddrs`.
    struct Link {
        std::string name;
        std::optional<sa_family_t> family = AF_PACKET;  ///< None for an entry without an address.
        bool hasStatistics = true;
    };

    std::vector<std::string> configuration;  ///< The names that `SIOCGIFCONF` gives, at most 16 bytes each.
    int extraLength = 0;                     ///< What `SIOCGIFCONF` adds to the length of these.
    std::vector<Link> links;                 ///< What `getifaddrs` gives.
    std::map<std::string, Device> devices;
    bool hasDescriptors = true;    ///< Whether `socket` succeeds.
    bool hasConfiguration = true;  ///< Whether `SIOCGIFCONF` succeeds.
    bool hasLinks = true;          ///< Whether `getifaddrs` succeeds.

    /// Adds a device that has a hardware address to both lists.
    void add(const std::string& name, const char* address, Bytes hardware)
    {
        configuration.push_back(name);
        links.push_back({name});
        devices[name] = {socketAddress(address), std::move(hardware)};
    }

    /// The calls until now, in order, such as "ioctl(4711, 0x8915, eth0)".
    std::vector<std::string> calls() const { return _log.calls(); }
    /// The 40 bytes of each query for one name, as they were before the answer, by "request name".
    const std::map<std::string, std::vector<Bytes>>& queries() const { return _queries; }

private:
    // Room for the answers to a query; the platform's own structure is too short for an IPv6 address.
    static constexpr std::size_t answerAt = offsetof(ifreq, ifr_addr);
    static constexpr std::size_t dataAt = answerAt + offsetof(sockaddr, sa_data);

    static std::string hex(unsigned long number)
    {
        char text[32];
        std::snprintf(text, sizeof text, "0x%lx", number);
        return text;
    }

    int answer(int fd, unsigned long request, void* argument)
    {
        if (request == SIOCGIFCONF)
            return answerConfiguration(fd, static_cast<ifconf*>(argument));

        const char* const field = static_cast<char*>(argument);
        const std::string name(field, ::strnlen(field, IFNAMSIZ));
        _log.note("ioctl(" + std::to_string(fd) + ", " + hex(request) + ", " + name + ")");
        _queries[hex(request) + " " + name].push_back(bytesAt(argument, sizeof(ifreq)));
        const auto device = devices.find(name);
        if (device == devices.end() || fd == -1)
            return fail(ENODEV);
        if (request == SIOCGIFADDR)
            return put(argument, answerAt, device->second.address);
        if (request == SIOCGIFHWADDR)
            return put(argument, dataAt, device->second.hardware);
        return fail(EINVAL);
    }

    int answerConfiguration(int fd, ifconf* query)
    {
        _log.note("ioctl(" + std::to_string(fd) + ", " + hex(SIOCGIFCONF) + ", " + std::to_string(query->ifc_len) +
                  " bytes)");
        if (!hasConfiguration || fd == -1)
            return fail(EIO);
        char* at = query->ifc_buf;
        for (const std::string& name : configuration) {
            ifreq entry{};
            std::memcpy(entry.ifr_name, name.data(), std::min<std::size_t>(name.size(), IFNAMSIZ));
            std::memcpy(at, &entry, sizeof entry);
            at += sizeof entry;
        }
        query->ifc_len = static_cast<int>(at - query->ifc_buf) + extraLength;
        return 0;
    }

    static int put(void* argument, std::size_t at, const std::optional<Bytes>& bytes)
    {
        if (!bytes)
            return fail(EADDRNOTAVAIL);
        std::memcpy(static_cast<char*>(argument) + at, bytes->data(), bytes->size());
        return 0;
    }

    static int fail(int error)
    {
        errno = error;
        return -1;
    }

    int makeList(ifaddrs** list)
    {
        _log.note("getifaddrs");
        if (!hasLinks)
            return fail(ENOMEM);
        _entries.clear();
        for (Link& link : links) {
            Entry& entry = _entries.emplace_back();
            entry.name = link.name;
            entry.address.sa_family = link.family.value_or(0);
            entry.item.ifa_name = entry.name.data();
            entry.item.ifa_addr = link.family ? &entry.address : nullptr;
            entry.item.ifa_data = link.hasStatistics ? &entry.statistics : nullptr;
            if (_entries.size() > 1)
                (_entries.end() - 2)->item.ifa_next = &entry.item;
        }
        *list = _entries.empty() ? nullptr : &_entries.front().item;
        return 0;
    }

    // What the list held is good for nothing afterwards.
    void freeList(ifaddrs* list)
    {
        _log.note(list == (_entries.empty() ? nullptr : &_entries.front().item) ? "freeifaddrs" : "freeifaddrs(?)");
        for (Entry& entry : _entries)
            std::fill(entry.name.begin(), entry.name.end(), '?');
    }

    struct Entry {
        std::string name;
        sockaddr address{};
        int statistics = 0;
        ifaddrs item{};
    };

    interpose::CallLog _log;
    std::map<std::string, std::vector<Bytes>> _queries;
    std::deque<Entry> _entries;
    int _nextDescriptor = fakeFd;

    Interposed<int(int, int, int)> _socket{interpose::socket, [this](auto, int domain, int type, int protocol) {
                                               const int fd = hasDescriptors ? _nextDescriptor++ : fail(EMFILE);
                                               _log.note("socket(" + std::to_string(domain) + ", " +
                                                         std::to_string(type) + ", " + std::to_string(protocol) +
                                                         ") = " + std::to_string(fd));
                                               return fd;
                                           }};
    Interposed<int(int)> _close{interpose::close, [this](auto real, int fd) {
                                    if (fd != -1 && fd < fakeFd)
                                        return real(fd);  // the test's own
                                    _log.note("close(" + std::to_string(fd) + ")");
                                    return 0;
                                }};
    Interposed<int(int, unsigned long, void*)> _ioctl{
        interpose::ioctl,
        [this](auto, int fd, unsigned long request, void* argument) { return answer(fd, request, argument); }};
    Interposed<int(ifaddrs**)> _getifaddrs{interpose::getifaddrs,
                                           [this](auto, ifaddrs** list) { return makeList(list); }};
    Interposed<void(ifaddrs*)> _freeifaddrs{interpose::freeifaddrs, [this](auto, ifaddrs* list) { freeList(list); }};
};

#endif
