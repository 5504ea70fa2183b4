// What one of the chat says, on its way through the network.
#ifndef MULTICAST_CHAT_MESSAGE_H
#define MULTICAST_CHAT_MESSAGE_H

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <utility>

/// A line with what tells it from all others: a number that its speaker drew when it began, and the line's own.
struct Message {
    std::uint64_t speaker = 0;
    std::uint64_t number = 0;
    std::string group;  ///< Where it was said: a socket also hears other groups of its port that this machine is in.
    std::string name;
    std::string text;

    /// The datagram: a mark of this program, the two numbers, the group, the name, and the text behind a newline.
    std::string toDatagram() const;
    /// Reads a datagram. Anybody may send anything to a group, so what does not look right is none, and what a terminal
    /// would take for a command becomes question marks.
    static std::optional<Message> FromDatagram(const std::string& datagram);
};

/// Tells copies from news: a datagram comes once for each way between two hosts, and again for each socket.
class Copies {
public:
    /// @return whether the message came before; only the last ones count
    bool isCopy(const Message& message);

private:
    std::set<std::pair<std::uint64_t, std::uint64_t>> _known;
    std::deque<std::pair<std::uint64_t, std::uint64_t>> _order;
};

#endif
