// A machine with two network interfaces that does what a test says, for tests of the multicast socket.
#ifndef KXPAL_TESTS_MULTICAST_PLATFORM_H
#define KXPAL_TESTS_MULTICAST_PLATFORM_H

#include <kxPAL/HostAddress.h>
#include <kxPAL/MulticastUdpSocket.h>

#include <cstddef>
#include <initializer_list>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "LogCapture.h"

class MadeUpInterfaces;

/// While it lives, sockets and pipes are numbers from 900 on, and every call on them is noted and succeeds, unless the
/// test says otherwise. The process's list of interfaces, which is made once, holds eth0 and eth1.
class MulticastPlatform {
public:
    using Calls = std::vector<std::string>;
    using Bytes = std::vector<unsigned char>;

    MulticastPlatform();
    ~MulticastPlatform();

    MulticastPlatform(const MulticastPlatform&) = delete;
    MulticastPlatform& operator=(const MulticastPlatform&) = delete;

    /// Adds eth0 and eth1 to a machine that is made up.
    static void addInterfaces(MadeUpInterfaces& machine);

    /// The calls until now, in order, as the functions below write them; those before the last takeCalls() left out.
    Calls takeCalls();

    /// Puts a line among the calls.
    void note(const std::string& line);

    /// Makes each call fail that is written like this.
    void refuse(const std::string& call, int error);
    /// What every `sendto` returns that is not refused; -1 for the length that was asked.
    long sent = -1;
    /// Which descriptors `select` finds ready.
    std::vector<int> ready;
    /// What `recvfrom` gives on each descriptor; its sender is 10.9.0.1, port 4000.
    std::map<int, std::string> datagrams;

    static std::string socket(int fd);
    static std::string option(int fd, int level, int option, const Bytes& value);
    static std::string join(int fd, const std::string& group, const std::string& local);
    static std::string leave(int fd, const std::string& group, const std::string& local);
    static std::string sendThrough(int fd, const std::string& local);
    static std::string bind(int fd, const std::string& addressAndPort);
    static std::string send(int fd, const std::string& data, const std::string& addressAndPort);
    static std::string select(const std::vector<int>& descriptors);
    static std::string receive(int fd, std::size_t length);
    static std::string shutdown(int fd);
    static std::string close(int fd);
    static std::string pipe(int end, int otherEnd);
    static std::string write(int fd, const Bytes& bytes);

private:
    class Replacements;
    std::unique_ptr<Replacements> _replacements;
};

/// The multicast socket with its fields open to the test.
class OpenMulticast : public Murn::MulticastUdpSocket {
public:
    using MulticastUdpSocket::_groups;
    using MulticastUdpSocket::_pairs;
    using MulticastUdpSocket::_wakeupPipe;
    using MulticastUdpSocket::SocketHostPair;

    SocketHostPair& pair(std::size_t index) { return *_pairs.at(index); }
    Murn::HostAddress& address(std::size_t index) { return pair(index).interface.address; }
    /// The registered groups as text.
    std::vector<std::string> groups() const
    {
        std::vector<std::string> texts;
        for (const Murn::HostAddress* const group : _groups)
            texts.push_back(group->toString());
        return texts;
    }
};

/// A list of addresses as callers hand it over; the addresses go with it.
class GroupList {
public:
    GroupList(std::initializer_list<std::string> texts)
    {
        for (const std::string& text : texts)
            _pointers.push_back(&_addresses.emplace_back(text));
    }

    GroupList(const GroupList&) = delete;
    GroupList& operator=(const GroupList&) = delete;

    operator const std::list<Murn::HostAddress*>&() const { return _pointers; }

private:
    std::list<Murn::HostAddress> _addresses;
    std::list<Murn::HostAddress*> _pointers;
};

/// The texts of all messages, which are warnings of one domain.
std::vector<std::string> warnings(const LogCapture& log, const std::string& domain);

// What the platform gives the first multicast socket of a test, and addresses.
constexpr int fd0 = 900;
constexpr int fd1 = 901;
constexpr int pipeRead = 902;
constexpr int pipeWrite = 903;
inline const std::string local0 = "10.1.0.1";
inline const std::string local1 = "10.2.0.1";
inline const std::string groupA = "239.1.1.1";
inline const std::string groupB = "239.1.1.2";
inline const std::string groupIPv6 = "ff02::4711";

/// Registers on port 5000.
inline int registerOn(Murn::MulticastUdpSocket& socket, const GroupList& groups, bool ignoreBindFailure = false)
{
    return socket.registerOnMulticastGroup(groups, 5000, ignoreBindFailure);
}

#endif
