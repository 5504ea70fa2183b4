// Sockets, on the loopback.
//
//   64 bytes there and read   TcpSocket::send and recv          against send and recv
//   a datagram of 64 bytes    UdpSocket::sendto and recvfrom    against sendto and recvfrom
#include <kxPAL/HostAddress.h>
#include <kxPAL/TcpSocket.h>
#include <kxPAL/UdpSocket.h>

#include <cstring>

#include "Loopback.h"
#include "Ratio.h"

namespace {

constexpr long messageSize = 64;

void libraryStream(benchmark::State& state)
{
    const auto [one, other] = connectedPair();
    Murn::TcpSocket sender(one);
    Murn::TcpSocket receiver(other);
    char message[messageSize] = "message";
    char buffer[messageSize];
    long received = 0;
    for (auto _ : state) {
        sender.send(message, messageSize);
        received += receiver.recv(buffer, messageSize);
    }
    require(received == messageSize * static_cast<long>(state.iterations()), "every byte arrived");
}

void floorStream(benchmark::State& state)
{
    const auto [one, other] = connectedPair();
    char message[messageSize] = "message";
    char buffer[messageSize];
    long received = 0;
    for (auto _ : state) {
        ::send(one, message, messageSize, 0);
        received += ::recv(other, buffer, messageSize, 0);
    }
    require(received == messageSize * static_cast<long>(state.iterations()), "every byte arrived");
    ::close(one);
    ::close(other);
}

void libraryDatagram(benchmark::State& state)
{
    const Murn::HostAddress loopback(Murn::HostAddress::LoopbackIPv4);
    Murn::UdpSocket sender(Murn::Socket::IPv4);
    Murn::UdpSocket receiver(Murn::Socket::IPv4);
    require(sender.bind(loopback, 0) && receiver.bind(loopback, 0), "the sockets are bound");
    const unsigned short port = receiver.localPort();
    char message[messageSize] = "message";
    char buffer[messageSize];
    Murn::HostAddress from;
    unsigned short fromPort = 0;
    long received = 0;
    for (auto _ : state) {
        sender.sendto(message, messageSize, loopback, port);
        received += receiver.recvfrom(buffer, messageSize, &from, &fromPort);
    }
    require(received == messageSize * static_cast<long>(state.iterations()), "every datagram arrived");
    require(from == loopback && fromPort == sender.localPort(), "the datagrams came from the sender");
}

void floorDatagram(benchmark::State& state)
{
    const int sender = boundSocket(SOCK_DGRAM);
    const int receiver = boundSocket(SOCK_DGRAM);
    const sockaddr_in to = loopbackAddress(portOf(receiver));
    char message[messageSize] = "message";
    char buffer[messageSize];
    sockaddr_in from{};
    long received = 0;
    for (auto _ : state) {
        ::sendto(sender, message, messageSize, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        socklen_t length = sizeof from;
        received += ::recvfrom(receiver, buffer, messageSize, 0, reinterpret_cast<sockaddr*>(&from), &length);
    }
    require(received == messageSize * static_cast<long>(state.iterations()), "every datagram arrived");
    require(ntohs(from.sin_port) == portOf(sender), "the datagrams came from the sender");
    ::close(sender);
    ::close(receiver);
}

}  // namespace

int main(int argc, char** argv)
{
    RatioTable table;
    table.compare("TcpSocket: send and recv 64 bytes", libraryStream, floorStream);
    table.compare("UdpSocket: sendto and recvfrom 64 bytes", libraryDatagram, floorDatagram);
    return table.run(argc, argv);
}
