// Step: events go from thread to thread and arrive where their receivers live.
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>

#include <array>
#include <atomic>
#include <memory>

#include "LoopThread.h"
#include "Pump.h"
#include "Steps.h"

namespace {

using Murn::Application;

enum EventType : unsigned int { HopEvent = 2, BurstEvent, CountedEvent };  // 1 is the library's own

constexpr int hopsOfOneRound = 3;
constexpr long eventsOfOneBurst = 1000;

class Station;
using Route = std::array<Station*, 3>;

/// What the stations of all threads note together.
struct Log {
    Route route{};
    std::atomic<int> hops{0};
    std::atomic<long> counted{0};
    std::atomic<long> strayed{0};  // arrived on another thread than the receiver's
    std::atomic<int> goneAtHome{0};
};

/// Lives on one thread and passes on what it gets.
class Station : public Murn::Object {
public:
    Station(const char* name, Log& log) : _name(name), _log(log) {}
    ~Station() override { _log.goneAtHome += isAtHome() ? 1 : 0; }

    void event(Murn::Event* event) override
    {
        if (!isAtHome())
            ++_log.strayed;
        switch (event->_type) {
            case HopEvent:
                hop();
                break;
            case BurstEvent:
                burst();
                break;
            case CountedEvent:
                ++_log.counted;
                break;
            default:
                Object::event(event);  // the request to delete this object among them
        }
    }

private:
    bool isAtHome() const { return thread()->isCurrentThread(); }

    void hop()
    {
        const int number = ++_log.hops;
        say("  hop %d arrives at \"%s\", on %s thread", number, _name, isAtHome() ? "its own" : "A WRONG");
        if (number < hopsOfOneRound)
            Application::PostEvent(_log.route[static_cast<std::size_t>(number)], new Murn::Event(HopEvent, nullptr));
    }

    void burst()
    {
        for (Station* const other : _log.route) {
            for (long number = 0; other != this && number < eventsOfOneBurst; ++number)
                Application::PostEvent(other, new Murn::Event(CountedEvent, nullptr));
        }
    }

    const char* _name;
    Log& _log;
};

Findings walk(Murn::Application&)
{
    Findings findings;
    Log log;
    {
        say("Three threads, each with a loop, and on each an object that receives events.");
        LoopThread north;
        LoopThread south;
        log.route = {new Station("north", log), new Station("south", log), new Station("main", log)};
        log.route[0]->moveToThread(north.thread());
        log.route[1]->moveToThread(south.thread());

        say("An event is posted to the first, which posts one to the second, and so on.");
        Application::PostEvent(log.route[0], new Murn::Event(HopEvent, nullptr));
        findings.check(pumpUntil([&] { return log.hops == hopsOfOneRound; }), "the round was made");

        say("Now each of them posts %ld events to each of the others, all at once.", eventsOfOneBurst);
        const long expected = 6 * eventsOfOneBurst;
        for (Station* const station : log.route)
            Application::PostEvent(station, new Murn::Event(BurstEvent, nullptr));
        findings.check(pumpUntil([&] { return log.counted == expected; }), "all of them arrived");
        findings.check(log.strayed == 0, "each arrived on the thread of its receiver");
        findings.figure(log.counted, "events");

        say("destroy() deletes an object on its own thread, whoever calls it.");
        for (Station* const station : log.route)
            station->destroy();
        findings.check(pumpUntil([&] { return log.goneAtHome == 3; }), "each went on its own thread");
    }
    return findings;
}

}  // namespace

const Step eventsStep = {"Posting events across three threads", walk};
