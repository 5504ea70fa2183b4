// A timer that fires again and again, and one that fires once and is gone.
#include <kxPAL/Application.h>
#include <kxPAL/Timer.h>

namespace {

int ticks = 0;
int alarms = 0;

// [periodic]
class Ticker : public Murn::Timer {
public:
    void timeout() override
    {
        if (++ticks == 3) {
            stop();
            Murn::Application::Quit();
        }
    }
};
// [end]

// [once]
class Alarm : public Murn::Timer {
public:
    void timeout() override
    {
        ++alarms;
        delete this;  // stops it; without this, call stop() here
    }
};
// [end]

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    // [start]
    Ticker ticker;
    ticker.start(10, nullptr);        // every 10 ms, on the calling thread's loop
    (new Alarm)->start(10, nullptr);  // once, 10 ms from now
    // [end]
    application.exec();
    return ticks == 3 && alarms == 1 && !ticker.isRunning() ? 0 : 1;
}
