// The connections of one thread whose peers are slow to take what was echoed.
#ifndef ECHO_SERVER_RETRY_QUEUE_H
#define ECHO_SERVER_RETRY_QUEUE_H

#include <kxPAL/Timer.h>

#include <chrono>
#include <map>

class Connection;

/// Has connections try again to send what their peers did not take at first.
///
/// The descriptors are blocking, so each try that fails holds up the whole thread for the send time-out of the socket.
/// Two things keep that from hurting the other connections: each connection comes back later after each try in vain,
/// and all of them together get a tenth of the thread's time at most. One thread at a time, not locked.
class RetryQueue : private Murn::Timer {
public:
    using Clock = std::chrono::steady_clock;

    /// Has the connection's retry() called on this thread's loop.
    /// @param connection  must live until then
    /// @param delay       how long to wait at least
    void add(Connection& connection, Clock::duration delay);

private:
    void timeout() override;
    void schedule();

    std::multimap<Clock::time_point, Connection*> _waiting;  // by the time from which on they may try
    Clock::time_point _restUntil;                            // before that, the thread's time is for the others
};

#endif
