// Many clients at once, on one thread.
#ifndef KXPAL_TESTS_CROWD_H
#define KXPAL_TESTS_CROWD_H

#include <cstddef>
#include <string>
#include <vector>

#include "TcpClient.h"

/// A number of clients that are connected at the same time, each with a message of its own.
class Crowd {
public:
    /// Connects all of them.
    Crowd(std::size_t count, unsigned short port);

    bool isConnected() const;
    /// Has each client send its message a number of times and wait for the echo of each before the next, all of them
    /// at the same time (`poll`).
    /// @return how many clients got all their echoes, byte for byte
    std::size_t chat(std::size_t messageSize, int rounds);

private:
    struct Member {
        std::string message;
        std::string answer;
        std::size_t sent;
        int roundsLeft;
        bool broken;
    };

    void send(std::size_t index);
    void receive(std::size_t index);

    std::vector<TcpClient> _clients;
    std::vector<Member> _members;
};

#endif
