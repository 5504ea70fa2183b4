// The connections of one thread whose peers are slow to take what was echoed.
#include "RetryQueue.h"

#include <algorithm>

#include "Connection.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds shareOfOneRound(2);  // a try that blocks takes longer, so it is the last one of its round
constexpr int restPerWork = 9;              // rounds take a tenth of the time, and the rest is for the others

}  // namespace

void RetryQueue::add(Connection& connection, Clock::duration delay)
{
    _waiting.emplace(Clock::now() + delay, &connection);
    schedule();
}

void RetryQueue::timeout()
{
    const Clock::time_point begin = Clock::now();
    Clock::time_point now = begin;
    while (!_waiting.empty() && _waiting.begin()->first <= now && now - begin < shareOfOneRound) {
        Connection* const connection = _waiting.begin()->second;
        _waiting.erase(_waiting.begin());
        connection->retry();  // it may come back here, and it may be gone afterwards
        now = Clock::now();
    }
    _restUntil = now + restPerWork * (now - begin);
    schedule();
}

void RetryQueue::schedule()
{
    if (_waiting.empty()) {
        stop();
        return;
    }
    const auto wait = std::max(_waiting.begin()->first, _restUntil) - Clock::now();
    const auto waitMs = std::max(std::chrono::ceil<milliseconds>(wait), milliseconds(1));
    start(static_cast<unsigned int>(waitMs.count()), nullptr);
}
