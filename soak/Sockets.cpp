// Activity: names are looked up, interfaces listed, and blocking sockets exchange a few words.
#include "Sockets.h"

#include <kxPAL/Application.h>
#include <kxPAL/HostAddress.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/NetworkInterface.h>
#include <kxPAL/TcpServer.h>
#include <kxPAL/TcpSocket.h>
#include <kxPAL/TcpStream.h>
#include <kxPAL/UdpSocket.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using Murn::HostAddress;
using Murn::Socket;

void lookUp(Ledger& ledger)
{
    const HostAddress loopback(HostAddress::LoopbackIPv4);
    ledger.check(HostAddress::FromHostName("localhost", HostAddress::IPv4) == loopback, "localhost is 127.0.0.1");
    const std::vector<HostAddress> all = HostAddress::ResolveHostName("127.0.0.1", HostAddress::Unspecified);
    ledger.check(std::find(all.begin(), all.end(), loopback) != all.end(), "127.0.0.1 is itself");
    ledger.check(HostAddress(HostAddress("::1").toString()) == HostAddress(HostAddress::LoopbackIPv6), "::1 is ::1");
    ledger.check(!HostAddress("127.0.0.256").isValid(), "127.0.0.256 is no address");
    ledger.add(Figure::lookUps, 2);
}

void listInterfaces(Ledger& ledger)
{
    // The first object in the process, which the host makes before all else, has asked the system.
    std::vector<Murn::NetworkInterfaceInfo> addressed;
    std::vector<Murn::NetworkInterfaceInfo> physical;
    ledger.check(Murn::NetworkInterface::getInterfaces(addressed), "interfaces are listed");
    ledger.check(Murn::NetworkInterface::getAllPhysicalInterfaces(physical), "physical interfaces are listed");
    ledger.check(addressed.size() <= physical.size(), "an interface with an address is a device");
}

void exchangeDatagrams(Ledger& ledger, Dice& dice, Socket::Family family, const HostAddress& address)
{
    Murn::UdpSocket one(family);
    Murn::UdpSocket two(family);
    ledger.check(one.bind(address, 0) && two.bind(address, 0), "datagram sockets are bound");
    const std::string words = dice.bytes(dice.between(1, 1400));
    const auto size = static_cast<long>(words.size());
    ledger.check(one.sendto(words.data(), words.size(), address, two.localPort()) == size, "a datagram leaves");
    std::string heard(2000, '\0');
    HostAddress from;
    unsigned short port = 0;
    ledger.check(
        two.recvfrom(heard.data(), heard.size(), &from, &port) == size && heard.substr(0, words.size()) == words,
        "a datagram arrives");
    ledger.check(from == address && port == one.localPort(), "a datagram says where it is from");
    ledger.add(Figure::socketExchanges);
}

bool sendAll(Murn::TcpSocket& socket, const std::string& words)
{
    std::size_t done = 0;
    while (done < words.size()) {
        const long part = socket.send(words.data() + done, words.size() - done);
        if (part <= 0)
            return false;
        done += static_cast<std::size_t>(part);
    }
    return true;
}

std::string receiveAll(Murn::TcpSocket& socket, std::size_t size)
{
    std::string words(size, '\0');
    std::size_t done = 0;
    long part = 0;
    while (done < size && (part = socket.recv(words.data() + done, size - done)) > 0)
        done += static_cast<std::size_t>(part);
    words.resize(done);
    return words;
}

// Two blocking sockets talk; both ends are on this thread, so little is said at a time.
void talk(Ledger& ledger, Dice& dice, Murn::TcpServer& server, Murn::TcpSocket& client)
{
    Murn::TcpSocket accepted(server.acceptFd());
    client.setLowDelay(true);
    for (unsigned int turns = dice.between(1, 5); turns > 0; --turns) {
        const std::string words = dice.bytes(dice.between(1, 4000));
        ledger.check(sendAll(client, words) && receiveAll(accepted, words.size()) == words, "words arrive");
        ledger.check(sendAll(accepted, words) && receiveAll(client, words.size()) == words, "words come back");
    }
    ledger.check(accepted.close() && !accepted.close(), "a socket is closed once");
    char end = 0;
    ledger.check(client.recv(&end, 1) == 0, "a peer that closed is at its end");
    ledger.add(Figure::socketExchanges);
}

// Counts what a stream reads.
class Reader : public Murn::IStreamReadHandler {
public:
    explicit Reader(Murn::TcpStream& stream) : _stream(stream) { arm(); }

    void readDone(void* buffer, long result) override
    {
        hasEnded = buffer == nullptr;
        if (hasEnded)
            return;
        heard.append(_buffer, static_cast<std::size_t>(result));
        arm();
    }

    std::string heard;
    bool hasEnded = false;

private:
    void arm() { _stream.asyncReadData(_buffer, sizeof _buffer, this); }

    Murn::TcpStream& _stream;
    char _buffer[1000];
};

// Two streams on this thread's loop: one connects, the other is accepted.
void talkInStreams(Round& round, Dice& dice, Murn::TcpServer& server)
{
    Ledger& ledger = round.ledger();
    Murn::TcpStream client(Socket::IPv4);
    const bool isConnected = dice.oneIn(2) ? client.connect(HostAddress::LoopbackIPv4, server.localPort())
                                           : client.connect(HostAddress::LoopbackIPv4, server.localPort(), 10000);
    ledger.check(isConnected, "a stream connects");
    std::unique_ptr<Murn::TcpStream> accepted(server.acceptStream());
    Reader reader(*accepted);
    const std::string words = dice.bytes(dice.between(1, 8000));
    std::size_t done = 0;
    while (done < words.size()) {
        const long part = client.writeData(words.data() + done, words.size() - done);
        if (!ledger.check(part > 0, "a stream takes what it is to send"))
            return;
        done += static_cast<std::size_t>(part);
    }
    while (reader.heard.size() < words.size() && !reader.hasEnded)
        Murn::Application::ProcessEvents(true);
    ledger.check(reader.heard == words, "a stream reads what the other wrote");
    if (dice.oneIn(2))
        accepted->clearHandler();
    ledger.check(accepted->close() == 0, "a stream is closed");
    ledger.add(Figure::socketExchanges);
}

// Nobody listens at a port that is taken. Success means that the wait ended, not that the peer agreed.
void knockInVain(Ledger& ledger)
{
    Murn::TcpServer holder(Socket::IPv4);
    ledger.check(holder.bind(HostAddress::LoopbackIPv4, 0), "a port is taken");
    Murn::TcpSocket plain(Socket::IPv4);
    ledger.check(!plain.connect(HostAddress::LoopbackIPv4, holder.localPort()), "nobody is there");
    Murn::TcpSocket patient(Socket::IPv4);
    char byte = 0;
    ledger.check(patient.connect(HostAddress::LoopbackIPv4, holder.localPort(), 10000) && patient.recv(&byte, 1) <= 0,
                 "a refusal shows in the first call after a connection with a limit");
}

}  // namespace

void Sockets::live(Round& round, Dice& dice)
{
    Murn::Application::RegisterExternalThread();  // for the streams
    for (; !round.isOver(); round.rest()) {
        lookUp(round.ledger());
        listInterfaces(round.ledger());
        exchangeDatagrams(round.ledger(), dice, Socket::IPv4, HostAddress::LoopbackIPv4);
        Murn::TcpServer server(Socket::IPv4);
        round.ledger().check(server.bind(HostAddress::LoopbackIPv4, 0) && server.listen(), "a server listens");
        Murn::TcpSocket client(Socket::IPv4);
        round.ledger().check(client.connect(HostAddress::LoopbackIPv4, server.localPort(), 10000), "a socket connects");
        talk(round.ledger(), dice, server, client);
        talkInStreams(round, dice, server);
        knockInVain(round.ledger());
    }
    Murn::Application::UnregisterExternalThread();
}
