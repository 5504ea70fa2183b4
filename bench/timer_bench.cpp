// Timers, on the loop of the main application thread.
//
//   start and stop   Timer                           against a timeout source made, attached and destroyed
//   fire             Timer with an interval of 0     against a timeout source with an interval of 0
#include <glib.h>
#include <kxPAL/Application.h>
#include <kxPAL/Timer.h>

#include "LoopContext.h"
#include "Ratio.h"

namespace {

class Counter : public Murn::Timer {
public:
    void timeout() override { ++fired; }

    long fired = 0;
};

gboolean countFire(gpointer data)
{
    ++*static_cast<long*>(data);
    return G_SOURCE_CONTINUE;
}

GSource* startSource(guint intervalMs, long& fired, GMainContext* context)
{
    GSource* const source = g_timeout_source_new(intervalMs);
    g_source_set_callback(source, countFire, &fired, nullptr);
    g_source_attach(source, context);
    return source;
}

void stopSource(GSource* source)
{
    g_source_destroy(source);
    g_source_unref(source);
}

void libraryStart(benchmark::State& state)
{
    Counter timer;
    for (auto _ : state) {
        timer.start(1000000, nullptr);
        timer.stop();
    }
    require(timer.fired == 0 && !timer.isRunning(), "no timer ran");
}

void floorStart(benchmark::State& state)
{
    GMainContext* const context = contextOfThisThread();
    long fired = 0;
    for (auto _ : state)
        stopSource(startSource(1000000, fired, context));
    require(fired == 0, "no timer ran");
}

void libraryFire(benchmark::State& state)
{
    Counter timer;
    timer.start(0, nullptr);
    for (auto _ : state)
        Murn::Application::ProcessEvents(true);
    require(timer.fired == static_cast<long>(state.iterations()), "the timer fired each time");
}

void floorFire(benchmark::State& state)
{
    GMainContext* const context = contextOfThisThread();
    long fired = 0;
    GSource* const source = startSource(0, fired, context);
    for (auto _ : state)
        g_main_context_iteration(context, TRUE);
    stopSource(source);
    require(fired == static_cast<long>(state.iterations()), "the timer fired each time");
}

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    RatioTable table;
    table.compare("Timer: start and stop", libraryStart, floorStart);
    table.compare("Timer: fire", libraryFire, floorFire);
    return table.run(argc, argv);
}
