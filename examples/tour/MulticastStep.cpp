// Step: datagrams to a group, on every interface at once.
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>
#include <kxPAL/MulticastUdpSocket.h>
#include <kxPAL/Thread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <vector>

#include "Pump.h"
#include "Steps.h"

namespace {

using Murn::HostAddress;
using Murn::MulticastUdpSocket;

constexpr std::array<const char*, 3> datagrams = {"one", "two", "three"};

/// Takes what the socket warns of: an interface that is down or refuses groups is nothing wrong with the tour.
class Warnings final : public Murn::LogHandler {
public:
    Warnings() : LogHandler("Multicast", Murn::Logger::LevelWarning) { Murn::Logger::InstallHandler(this); }
    ~Warnings() { Murn::Logger::UninstallHandler(this); }

    void HandleLog(const char*, Murn::Logger::LogLevel, const char* message) override { say("%s", message); }
};

/// What came, counted.
struct Heard {
    std::array<std::atomic<long>, datagrams.size()> copies = {};
    std::atomic<long> strange{0};
    std::atomic<bool> woken{false};

    bool all() const
    {
        return std::all_of(copies.begin(), copies.end(), [](const std::atomic<long>& count) { return count > 0; });
    }
    void add(const std::string& text)
    {
        const auto found = std::find(datagrams.begin(), datagrams.end(), text);
        ++(found != datagrams.end() ? copies[static_cast<std::size_t>(found - datagrams.begin())] : strange);
    }
};

/// Receives until it is woken, which its end does.
class Listener : public Murn::Thread {
public:
    Listener(MulticastUdpSocket& socket, Heard& heard) : _socket(socket), _heard(heard)
    {
        setJoinable(true);
        start();
    }
    ~Listener() override
    {
        _socket.wakeUp();
        join();
    }

    void run() override
    {
        char buffer[64];
        long size = 0;
        while ((size = _socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr)) != -1)
            _heard.add(std::string(buffer, static_cast<std::size_t>(size)));
        _heard.woken = true;
    }

private:
    MulticastUdpSocket& _socket;
    Heard& _heard;
};

// A port that nobody has now.
unsigned short freePort()
{
    Murn::UdpSocket socket(Murn::Socket::IPv4);
    return socket.bind(HostAddress::AnyIPv4, 0) ? socket.localPort() : static_cast<unsigned short>(0);
}

void talkToNobody(Findings& findings, MulticastUdpSocket& socket, HostAddress& group)
{
    say("There is no interface besides the loopback device, so there are no sockets.");
    char buffer[64];
    findings.check(socket.registerOnMulticastGroup({&group}, freePort(), false) == 4,
                   "groups cannot be joined, and the result says why");
    findings.check(socket.sendto("one", 3, 9) == 4, "nothing can be sent, for the same reason");
    findings.check(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr) == 0, "nobody waits in vain");
}

void talkToOurselves(Findings& findings, MulticastUdpSocket& socket, unsigned short port)
{
    Heard heard;
    long sent = 0;
    {
        const Listener listener(socket, heard);
        for (const char* const datagram : datagrams)
            sent += socket.sendto(datagram, std::string(datagram).size(), port) == 0 ? 1 : 0;
        // Networks make no promises, so nobody waits for long.
        if (sent > 0)
            pumpUntil([&, turns = 0]() mutable { return heard.all() || ++turns > 200; });
        say("The receiver is woken, of which the library tells in two lines of its own:");
    }
    long copies = 0;
    for (const std::atomic<long>& count : heard.copies)
        copies += count;
    findings.check(heard.woken, "a thread that waits for datagrams can be woken");
    findings.check(heard.strange == 0, "nothing came that was not sent");
    say("%ld of %zu datagrams left, and %ld came: one on each way, for each socket.", sent, datagrams.size(), copies);
    findings.figure(copies, "multicast datagrams");
}

Findings walk(Murn::Application&)
{
    Findings findings;
    const Warnings warnings;
    MulticastUdpSocket socket;
    std::vector<Murn::NetworkInterfaceInfo> interfaces;
    socket.getNetworkInterfaces(interfaces);
    HostAddress group(std::string("239.255.71.71"));

    if (interfaces.empty()) {
        talkToNobody(findings, socket, group);
    } else {
        const unsigned short port = freePort();
        const int result = socket.registerOnMulticastGroup({&group}, port, false);
        say("A socket for each interface (%zu), and the group %s on port %u.", interfaces.size(),
            group.toString().c_str(), port);
        if (findings.check(result == 0 || result == -1 || result == 5, "the result says whether one joined it") &&
            result == 0)
            talkToOurselves(findings, socket, port);
    }
    return findings;  // no other thread runs by now that could open a descriptor while sockets are closed
}

}  // namespace

const Step multicastStep = {"Talking to a group", walk};
