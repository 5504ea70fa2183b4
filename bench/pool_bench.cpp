// Units of no work through a pool of threads: what it takes to hand them in, run them and delete them.
//
//   1,000 units, each, with 1, 2 and 4 workers   ThreadPool   against as many threads that pop from a GAsyncQueue, call
//                                                             and delete
//   the same, against threads with loops         ThreadPool   against the same that turn a GMainContext of their own,
//                                                             with a source for events, after each unit
#include <glib.h>
#include <kxPAL/Application.h>
#include <kxPAL/Runnable.h>
#include <kxPAL/ThreadPool.h>

#include <vector>

#include "Deliveries.h"
#include "Ratio.h"

namespace {

constexpr long burst = 1000;

// ---- The library's side ----

class LibraryUnit : public Murn::Runnable {
public:
    explicit LibraryUnit(Deliveries& deliveries) : _deliveries(deliveries) {}

    void run() override { _deliveries.add(); }

private:
    Deliveries& _deliveries;
};

class LibraryPool {
public:
    explicit LibraryPool(int workers) : _pool(workers) {}

    void run(Deliveries& deliveries) { _pool.run(new LibraryUnit(deliveries)); }

private:
    Murn::ThreadPool _pool;
};

// ---- The floor's side ----

class BareUnit {
public:
    explicit BareUnit(Deliveries& deliveries) : _deliveries(deliveries) {}
    virtual ~BareUnit() = default;

    virtual void run() { _deliveries.add(); }

private:
    Deliveries& _deliveries;
};

struct BareSource {
    GSource source;
    GAsyncQueue* events;
};

gboolean prepareBare(GSource* source, gint* timeoutMs)
{
    *timeoutMs = -1;
    return g_async_queue_length(reinterpret_cast<BareSource*>(source)->events) > 0 ? TRUE : FALSE;
}

gboolean checkBare(GSource* source)
{
    return g_async_queue_length(reinterpret_cast<BareSource*>(source)->events) > 0 ? TRUE : FALSE;
}

gboolean dispatchBare(GSource* /*source*/, GSourceFunc /*callback*/, gpointer /*data*/)
{
    return G_SOURCE_CONTINUE;  // not called: no event is ever posted
}

void finalizeBare(GSource* source)
{
    g_async_queue_unref(reinterpret_cast<BareSource*>(source)->events);
}

GSourceFuncs bareFuncs = {prepareBare, checkBare, dispatchBare, finalizeBare, nullptr, nullptr};

GMainContext* newLoop()
{
    GMainContext* const context = g_main_context_new();
    GSource* const source = g_source_new(&bareFuncs, sizeof(BareSource));
    reinterpret_cast<BareSource*>(source)->events = g_async_queue_new();
    g_source_attach(source, context);
    g_source_unref(source);
    return context;
}

template <bool withLoops>
class BarePool {
public:
    explicit BarePool(int workers) : _queue(g_async_queue_new())
    {
        while (static_cast<int>(_threads.size()) < workers)
            _threads.push_back(g_thread_new(nullptr, work, _queue));
    }

    ~BarePool()
    {
        for (GThread* const thread : _threads) {
            static_cast<void>(thread);
            g_async_queue_push(_queue, _queue);  // anything that is no unit
        }
        for (GThread* const thread : _threads)
            g_thread_join(thread);
        g_async_queue_unref(_queue);
    }

    BarePool(const BarePool&) = delete;
    BarePool& operator=(const BarePool&) = delete;

    void run(Deliveries& deliveries) { g_async_queue_push(_queue, new BareUnit(deliveries)); }

private:
    static gpointer work(gpointer data)
    {
        auto* const queue = static_cast<GAsyncQueue*>(data);
        GMainContext* const context = withLoops ? newLoop() : nullptr;
        gpointer item = nullptr;
        while ((item = g_async_queue_pop(queue)) != queue) {
            auto* const unit = static_cast<BareUnit*>(item);
            unit->run();
            delete unit;
            if (withLoops)
                g_main_context_iteration(context, FALSE);
        }
        if (withLoops)
            g_main_context_unref(context);
        return nullptr;
    }

    GAsyncQueue* _queue;
    std::vector<GThread*> _threads;
};

template <typename Pool, int workers>
void runBurst(benchmark::State& state)
{
    Deliveries deliveries;
    {
        Pool pool(workers);
        while (state.KeepRunningBatch(burst)) {
            deliveries.expect(burst);
            for (long unit = 0; unit < burst; ++unit)
                pool.run(deliveries);
            deliveries.await();
        }
    }
    require(deliveries.count() == static_cast<long>(state.iterations()), "every unit ran");
}

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    RatioTable table;
    const auto wall = RatioTable::Clock::Wall;
    using Bare = BarePool<false>;
    using Looping = BarePool<true>;
    table.compare("ThreadPool, 1 worker: a unit", runBurst<LibraryPool, 1>, runBurst<Bare, 1>, wall);
    table.compare("ThreadPool, 2 workers: a unit", runBurst<LibraryPool, 2>, runBurst<Bare, 2>, wall);
    table.compare("ThreadPool, 4 workers: a unit", runBurst<LibraryPool, 4>, runBurst<Bare, 4>, wall);
    table.compare("ThreadPool, 1 worker, against a loop: a unit", runBurst<LibraryPool, 1>, runBurst<Looping, 1>, wall);
    table.compare("ThreadPool, 2 workers, against loops: a unit", runBurst<LibraryPool, 2>, runBurst<Looping, 2>, wall);
    table.compare("ThreadPool, 4 workers, against loops: a unit", runBurst<LibraryPool, 4>, runBurst<Looping, 4>, wall);
    return table.run(argc, argv);
}
