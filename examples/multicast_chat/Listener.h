// Shows what the others say.
#ifndef MULTICAST_CHAT_LISTENER_H
#define MULTICAST_CHAT_LISTENER_H

#include <kxPAL/MulticastUdpSocket.h>
#include <kxPAL/Thread.h>

#include <cstdint>
#include <string>

#include "Message.h"

/// A thread that waits for datagrams, which the main thread cannot do besides its loop, and prints each line once.
class Listener : private Murn::Thread {
public:
    /// @param socket   is registered and outlives this object
    /// @param group    only what was said there is shown
    /// @param speaker  this program's own number, whose lines are not shown: the socket gets them too
    Listener(Murn::MulticastUdpSocket& socket, std::string group, std::uint64_t speaker);
    /// Wakes the thread and waits for its end.
    ~Listener() override;

    /// @return false when the system refused the thread
    bool begin();

private:
    void run() override;
    bool isNews(const Message& message);

    Murn::MulticastUdpSocket& _socket;
    const std::string _group;
    const std::uint64_t _speaker;
    Copies _copies;
};

#endif
