// Activity: groups are joined and left, and datagrams go to them.
#include "Multicast.h"

#include <kxPAL/Buffer.h>
#include <kxPAL/MulticastUdpSocket.h>
#include <kxPAL/Thread.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <list>
#include <vector>

namespace {

using Murn::HostAddress;
using Murn::MulticastUdpSocket;

constexpr std::size_t mostDatagrams = 8;  // at a time: a receiver's queue has room for all copies of them
constexpr unsigned long datagramSize = 12;

// How often each datagram came. Written by the listener alone.
using Heard = std::array<std::atomic<std::uint64_t>, mostDatagrams>;

// Receives until it is woken.
class Listener : public Murn::Thread {
public:
    Listener(MulticastUdpSocket& socket, std::uint64_t session, Ledger& ledger)
        : heard(), _socket(socket), _session(session), _ledger(ledger)
    {
        setJoinable(true);
        start();
    }

    void run() override
    {
        unsigned char bytes[64];
        long size = 0;
        // A closed socket gives 0, and so does one that is closed right before it waits.
        while ((size = _socket.recvfrom(bytes, sizeof bytes, nullptr, nullptr)) != -1 && !isToEnd)
            take(bytes, size);
    }

    Heard heard;
    std::atomic<bool> isToEnd{false};

private:
    void take(unsigned char* bytes, long size)
    {
        const Murn::Buffer record(bytes, static_cast<unsigned long>(size));
        if (size == static_cast<long>(datagramSize) && record.read64(0) == _session && record.read32(8) < mostDatagrams)
            ++heard[record.read32(8)];
        else
            _ledger.complain("a datagram of %ld bytes came that nobody sent", size);
    }

    MulticastUdpSocket& _socket;
    const std::uint64_t _session;
    Ledger& _ledger;
};

class Groups {
public:
    Groups(Dice& dice, unsigned int count)
    {
        for (unsigned int number = 0; number < count; ++number)
            _addresses.emplace_back("239.255." + std::to_string(dice.between(1, 250)) + "." +
                                    std::to_string(number + 1));
    }

    std::list<HostAddress*> pointers()
    {
        std::list<HostAddress*> pointers;
        for (HostAddress& address : _addresses)
            pointers.push_back(&address);
        return pointers;
    }

private:
    std::list<HostAddress> _addresses;
};

// A port that nobody has now.
unsigned short freePort()
{
    Murn::UdpSocket socket(Murn::Socket::IPv4);
    return socket.bind(HostAddress::AnyIPv4, 0) ? socket.localPort() : static_cast<unsigned short>(0);
}

// Two sockets of one machine: what one sends to its groups, the other receives.
void meet(Round& round, Dice& dice)
{
    Ledger& ledger = round.ledger();
    MulticastUdpSocket receiver;
    MulticastUdpSocket sender;
    std::vector<Murn::NetworkInterfaceInfo> interfaces;
    receiver.getNetworkInterfaces(interfaces);
    const unsigned short port = freePort();
    const unsigned short senderPort = freePort();  // so that the sender's own copies stay away from the receiver's

    for (unsigned int turns = dice.between(1, 4); turns > 0; --turns) {
        const unsigned int groupCount = dice.between(1, 4);
        Groups groups(dice, groupCount);
        ledger.check(receiver.registerOnMulticastGroup(groups.pointers(), port, false) == 0 &&
                         sender.registerOnMulticastGroup(groups.pointers(), senderPort, false) == 0,
                     "groups are joined");
        ledger.add(Figure::groupsJoined, 2 * groupCount);

        const std::uint64_t session = dice.seed();
        Listener listener(receiver, session, ledger);
        const unsigned int datagrams = dice.between(1, mostDatagrams);
        for (unsigned int number = 0; number < datagrams; ++number) {
            unsigned char bytes[datagramSize];
            Murn::Buffer record(bytes, sizeof bytes);
            record.write64(0, session);
            record.write32(8, number);
            ledger.check(sender.sendto(bytes, sizeof bytes, port) == 0, "a datagram leaves to its groups");
        }
        // Each leaves on each interface to each group, and each socket of the receiver gets what comes to any.
        const std::uint64_t copies = interfaces.size() * interfaces.size() * groupCount;
        for (unsigned int number = 0; number < datagrams; ++number)
            round.await("all copies of a datagram", [&] { return listener.heard[number] >= copies; });
        const bool closes = turns == 1 && dice.oneIn(2);
        listener.isToEnd = true;
        ledger.check(closes ? receiver.close() : receiver.wakeUp(), "a receiver is woken");
        listener.join();
        for (unsigned int number = 0; number < datagrams; ++number)
            ledger.same("copies of a datagram", copies, listener.heard[number]);
        ledger.add(Figure::datagrams, datagrams);
        receiver.implClose();  // forgets the wake-up
        receiver.implInit();
    }
    receiver.close();
    sender.close();
}

}  // namespace

void Multicast::live(Round& round, Dice& dice)
{
    for (; !round.isOver(); round.rest())
        meet(round, dice);
}
