// Shows what the others say.
#include "Listener.h"

#include <cstdio>
#include <string>
#include <utility>

Listener::Listener(Murn::MulticastUdpSocket& socket, std::string group, std::uint64_t speaker)
    : _socket(socket), _group(std::move(group)), _speaker(speaker)
{
}

Listener::~Listener()
{
    if (!isRunning())
        return;
    _socket.wakeUp();
    join();
}

bool Listener::begin()
{
    setJoinable(true);
    start();
    return isRunning();
}

void Listener::run()
{
    std::string buffer(65536, '\0');
    Murn::HostAddress from;
    long size = 0;
    while ((size = _socket.recvfrom(buffer.data(), buffer.size(), &from, nullptr)) != -1) {
        const auto message = Message::FromDatagram(buffer.substr(0, static_cast<std::size_t>(size)));
        if (message && isNews(*message))
            std::printf("%s (%s): %s\n", message->name.c_str(), from.toString().c_str(), message->text.c_str());
    }
}

bool Listener::isNews(const Message& message)
{
    return message.group == _group && message.speaker != _speaker && !_copies.isCopy(message);
}
