// Many clients at once, on one thread.
#include "Crowd.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

Crowd::Crowd(std::size_t count, unsigned short port)
{
    for (std::size_t index = 0; index < count; ++index)
        _clients.emplace_back(port);
}

bool Crowd::isConnected() const
{
    return std::all_of(_clients.begin(), _clients.end(), [](const TcpClient& one) { return one.isConnected(); });
}

std::size_t Crowd::chat(std::size_t messageSize, int rounds)
{
    _members.clear();
    for (unsigned int index = 0; index < _clients.size(); ++index)
        _members.push_back({pattern(messageSize, index), {}, 0, rounds, false});

    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::vector<pollfd> polled;
    std::vector<std::size_t> indices;
    while (std::chrono::steady_clock::now() < end) {
        polled.clear();
        indices.clear();
        for (std::size_t index = 0; index < _clients.size(); ++index) {
            const Member& member = _members[index];
            if (member.broken || member.roundsLeft == 0)
                continue;
            const bool wantsToSend = member.sent < member.message.size();
            polled.push_back(
                {_clients[index].descriptor(), static_cast<short>(wantsToSend ? POLLIN | POLLOUT : POLLIN), 0});
            indices.push_back(index);
        }
        if (polled.empty())
            break;
        ::poll(polled.data(), polled.size(), 1000);
        for (std::size_t at = 0; at < polled.size(); ++at) {
            if ((polled[at].revents & POLLOUT) != 0)
                send(indices[at]);
            if ((polled[at].revents & ~POLLOUT) != 0)
                receive(indices[at]);
        }
    }

    return static_cast<std::size_t>(std::count_if(_members.begin(), _members.end(), [](const Member& member) {
        return !member.broken && member.roundsLeft == 0;
    }));
}

void Crowd::send(std::size_t index)
{
    Member& member = _members[index];
    const ssize_t count = ::send(_clients[index].descriptor(), member.message.data() + member.sent,
                                 member.message.size() - member.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count > 0)
        member.sent += static_cast<std::size_t>(count);
    else
        member.broken = errno != EAGAIN;
}

void Crowd::receive(std::size_t index)
{
    Member& member = _members[index];
    char part[64 * 1024];
    const ssize_t count = ::recv(_clients[index].descriptor(), part, sizeof part, MSG_DONTWAIT);
    if (count <= 0) {
        member.broken = count == 0 || errno != EAGAIN;
        return;
    }
    member.answer.append(part, static_cast<std::size_t>(count));
    if (member.answer.size() < member.message.size())
        return;
    member.broken = member.answer != member.message;
    member.answer.clear();
    member.sent = 0;
    --member.roundsLeft;
}
