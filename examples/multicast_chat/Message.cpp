// What one of the chat says, on its way through the network.
#include "Message.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace {

const std::string mark = "multicast_chat/1";
constexpr std::size_t remembered = 1000;

std::string printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return std::iscntrl(c) != 0 && c != '\t'; }, '?');
    return text;
}

}  // namespace

std::string Message::toDatagram() const
{
    return mark + " " + std::to_string(speaker) + " " + std::to_string(number) + " " + group + " " + name + "\n" + text;
}

std::optional<Message> Message::FromDatagram(const std::string& datagram)
{
    Message message;
    std::istringstream stream(datagram);
    std::string found;
    stream >> found >> message.speaker >> message.number >> message.group;
    if (found != mark || stream.get() != ' ')
        return std::nullopt;
    if (!std::getline(stream, message.name) || stream.eof())
        return std::nullopt;
    message.name = printable(message.name);
    message.text = printable(datagram.substr(static_cast<std::size_t>(stream.tellg())));
    return message;
}

bool Copies::isCopy(const Message& message)
{
    const auto key = std::make_pair(message.speaker, message.number);
    if (!_known.insert(key).second)
        return true;
    _order.push_back(key);
    if (_order.size() > remembered) {
        _known.erase(_order.front());
        _order.pop_front();
    }
    return false;
}
