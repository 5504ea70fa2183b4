// One client of the crowd.
#ifndef SOAK_CLIENT_H
#define SOAK_CLIENT_H

#include <chrono>
#include <cstdint>

#include "ConnectionBook.h"
#include "Manner.h"

/// A client on bare system calls, which tells the book what it did when it has ended. One thread at a time, not locked.
class Client {
public:
    using Clock = std::chrono::steady_clock;

    /// Connects to this machine.
    /// @param id  names the address to connect from
    Client(std::uint32_t id, unsigned short port, Dice& dice);
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool isConnected() const { return _fd != -1 && !_hasEnded; }
    int descriptor() const { return _fd; }
    /// @return what to poll for; 0 when only time matters
    short events(Clock::time_point now) const;
    /// Does what is to be done now.
    /// @param events  that came
    void act(short events, Clock::time_point now, Dice& dice);
    /// Sends no more, and comes to its end.
    void hurry();
    bool hasEnded() const { return _hasEnded; }
    /// @return null, or what went wrong
    const char* fault() const { return _fault; }
    std::uint32_t id() const { return _id; }
    ClientView view() const { return {_manner.name, _sent, _received, _cut}; }

private:
    bool wantsToSend(Clock::time_point now) const;
    bool wantsToRead() const { return _manner.reads || _isLeaving; }
    void send(Clock::time_point now, Dice& dice);
    void receive();
    void leave();
    void end(const char* fault);

    const std::uint32_t _id;
    const Manner& _manner;
    int _fd;
    std::uint64_t _total;
    std::uint64_t _sent;
    std::uint64_t _received;
    Clock::time_point _nextAt;
    Clock::time_point _leaveAt;
    bool _isLeaving;  // half-closed
    bool _cut;
    bool _hasEnded;
    const char* _fault;
};

#endif
