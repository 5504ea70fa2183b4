// Events, objects and the registry of threads.
//
//   post to another thread and wait for the delivery    PostEvent          against a push, a wake-up and a like source
//   post 1,000 to another thread, each                  PostEvent          against the same
//   post to the own thread and pump                     PostEvent          against the same
//   send                                                SendEvent          against a look at the thread and a call
//   dispatch on the own thread                          DispatchEvent      against the same with a new event each time
//   the current thread                                  CurrentThread      against a hash table under a GRecMutex
//   make and destroy an object, alone or among others   Object             against what that cannot do without
#include <glib.h>
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "Deliveries.h"
#include "Ratio.h"

namespace {

constexpr unsigned int countType = 100;
constexpr long burst = 1000;

// ---- The library's side ----

class CountingObject : public Murn::Object {
public:
    void event(Murn::Event* event) override
    {
        if (event->_type == countType)
            deliveries.add();
        else
            Murn::Object::event(event);
    }

    Deliveries deliveries;
};

/// An object on a thread of its own.
class LibraryReceiver {
public:
    LibraryReceiver() : _object(new CountingObject)
    {
        _thread.setJoinable(true);
        _thread.start();
        _object->moveToThread(&_thread);
        // Stopping is for loops that run: wait for a first event.
        deliveries().expect(1);
        post();
        deliveries().await();
    }

    ~LibraryReceiver()
    {
        _object->destroy();
        _thread.stop();
        _thread.join();
    }

    LibraryReceiver(const LibraryReceiver&) = delete;
    LibraryReceiver& operator=(const LibraryReceiver&) = delete;

    void post() { Murn::Application::PostEvent(_object, new Murn::Event(countType, nullptr)); }
    Deliveries& deliveries() { return _object->deliveries; }

private:
    Murn::Thread _thread;
    CountingObject* _object;  // its own thread deletes it
};

// ---- The floor's side: a queue, a source that drains it, and a loop ----

class BareItem;

class BareReceiver {
public:
    virtual ~BareReceiver() = default;
    virtual void receive(BareItem* /*item*/) { deliveries.add(); }

    Deliveries deliveries;
};

class BareItem {
public:
    explicit BareItem(BareReceiver* target) : receiver(target) {}
    virtual ~BareItem() = default;

    BareReceiver* receiver;
    unsigned int type = countType;
    void* data = nullptr;
};

struct BareSource {
    GSource source;
    GAsyncQueue* queue;
};

GAsyncQueue* queueOf(GSource* source)
{
    return reinterpret_cast<BareSource*>(source)->queue;
}

gboolean prepareBare(GSource* source, gint* timeoutMs)
{
    *timeoutMs = -1;
    return g_async_queue_length(queueOf(source)) > 0 ? TRUE : FALSE;
}

gboolean checkBare(GSource* source)
{
    return g_async_queue_length(queueOf(source)) > 0 ? TRUE : FALSE;
}

gboolean dispatchBare(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/)
{
    while (auto* const item = static_cast<BareItem*>(g_async_queue_try_pop(queueOf(source)))) {
        item->receiver->receive(item);
        delete item;
    }
    return G_SOURCE_CONTINUE;
}

GSourceFuncs bareFuncs = {prepareBare, checkBare, dispatchBare, nullptr, nullptr, nullptr};

class BareLoop {
public:
    BareLoop() : _queue(g_async_queue_new()), _context(g_main_context_new())
    {
        GSource* const source = g_source_new(&bareFuncs, sizeof(BareSource));
        reinterpret_cast<BareSource*>(source)->queue = _queue;
        g_source_attach(source, _context);
        g_source_unref(source);
    }

    virtual ~BareLoop()
    {
        g_main_context_unref(_context);
        g_async_queue_unref(_queue);
    }

    BareLoop(const BareLoop&) = delete;
    BareLoop& operator=(const BareLoop&) = delete;

    void post()
    {
        g_async_queue_push(_queue, new BareItem(&_receiver));
        g_main_context_wakeup(_context);
    }

    GMainContext* context() const { return _context; }
    Deliveries& deliveries() { return _receiver.deliveries; }

private:
    GAsyncQueue* _queue;
    GMainContext* _context;
    BareReceiver _receiver;
};

class BareThread : public BareLoop {
public:
    BareThread() : _loop(g_main_loop_new(context(), FALSE)), _thread(g_thread_new(nullptr, run, _loop))
    {
        deliveries().expect(1);
        post();
        deliveries().await();
    }

    ~BareThread() override
    {
        g_main_loop_quit(_loop);
        g_thread_join(_thread);
        g_main_loop_unref(_loop);
    }

private:
    static gpointer run(gpointer loop)
    {
        g_main_loop_run(static_cast<GMainLoop*>(loop));
        return nullptr;
    }

    GMainLoop* _loop;
    GThread* _thread;
};

// ---- Posting ----

template <typename Receiver>
void postAndWait(benchmark::State& state)
{
    Receiver receiver;
    const long before = receiver.deliveries().count();
    for (auto _ : state) {
        receiver.deliveries().expect(1);
        receiver.post();
        receiver.deliveries().await();
    }
    require(receiver.deliveries().count() - before == static_cast<long>(state.iterations()), "every event arrived");
}

template <typename Receiver>
void postBurst(benchmark::State& state)
{
    Receiver receiver;
    const long before = receiver.deliveries().count();
    while (state.KeepRunningBatch(burst)) {
        receiver.deliveries().expect(burst);
        for (long event = 0; event < burst; ++event)
            receiver.post();
        receiver.deliveries().await();
    }
    require(receiver.deliveries().count() - before == static_cast<long>(state.iterations()), "every event arrived");
}

void libraryPump(benchmark::State& state)
{
    CountingObject object;
    for (auto _ : state) {
        Murn::Application::PostEvent(&object, new Murn::Event(countType, nullptr));
        Murn::Application::ProcessEvents(false);
    }
    require(object.deliveries.count() == static_cast<long>(state.iterations()), "every event arrived");
}

void floorPump(benchmark::State& state)
{
    BareLoop loop;
    for (auto _ : state) {
        loop.post();
        g_main_context_iteration(loop.context(), FALSE);
    }
    require(loop.deliveries().count() == static_cast<long>(state.iterations()), "every event arrived");
}

// ---- Sending and dispatching ----

void librarySend(benchmark::State& state)
{
    CountingObject object;
    Murn::Event event(countType, nullptr);
    for (auto _ : state)
        Murn::Application::SendEvent(&object, event);
    require(object.deliveries.count() == static_cast<long>(state.iterations()), "every event arrived");
}

// The least that a send can do: see whose thread it is, and call.
void callIfOwn(BareReceiver& receiver, const std::atomic<GThread*>& home, BareItem& item)
{
    if (home.load(std::memory_order_acquire) == g_thread_self())
        receiver.receive(&item);
}

void floorSend(benchmark::State& state)
{
    const std::unique_ptr<BareReceiver> receiver(new BareReceiver);
    const std::atomic<GThread*> home(g_thread_self());
    BareItem item(receiver.get());
    for (auto _ : state) {
        BareReceiver* target = receiver.get();
        benchmark::DoNotOptimize(target);
        callIfOwn(*target, home, item);
    }
    require(receiver->deliveries.count() == static_cast<long>(state.iterations()), "every event arrived");
}

void libraryDispatch(benchmark::State& state)
{
    CountingObject object;
    for (auto _ : state)
        Murn::Application::DispatchEvent(&object, new Murn::Event(countType, nullptr));
    require(object.deliveries.count() == static_cast<long>(state.iterations()), "every event arrived");
}

void floorDispatch(benchmark::State& state)
{
    const std::unique_ptr<BareReceiver> receiver(new BareReceiver);
    const std::atomic<GThread*> home(g_thread_self());
    for (auto _ : state) {
        auto* item = new BareItem(receiver.get());
        benchmark::DoNotOptimize(item);
        callIfOwn(*item->receiver, home, *item);
        delete item;
    }
    require(receiver->deliveries.count() == static_cast<long>(state.iterations()), "every event arrived");
}

// ---- The registry ----

/// A hash table from system threads to whatever stands for them.
class BareRegistry {
public:
    BareRegistry() : _threads(g_hash_table_new(nullptr, nullptr))
    {
        g_rec_mutex_init(&_mutex);
        g_hash_table_insert(_threads, g_thread_self(), this);
    }

    ~BareRegistry()
    {
        g_hash_table_destroy(_threads);
        g_rec_mutex_clear(&_mutex);
    }

    BareRegistry(const BareRegistry&) = delete;
    BareRegistry& operator=(const BareRegistry&) = delete;

    void* current()
    {
        g_rec_mutex_lock(&_mutex);
        void* const found = g_hash_table_lookup(_threads, g_thread_self());
        g_rec_mutex_unlock(&_mutex);
        return found;
    }

private:
    GRecMutex _mutex;
    GHashTable* _threads;
};

void libraryCurrent(benchmark::State& state)
{
    Murn::Thread* const expected = Murn::Application::MainApplicationThread();
    bool all = true;
    for (auto _ : state)
        all = Murn::Application::CurrentThread() == expected && all;
    require(all, "the current thread is the main one");
}

void floorCurrent(benchmark::State& state)
{
    BareRegistry registry;
    bool all = true;
    for (auto _ : state)
        all = registry.current() == &registry && all;
    require(all, "the current thread is the registered one");
}

// ---- Objects ----

/// What an object with a mutex, listed with its thread, cannot do without: memory, the mutex, finding its thread,
/// the list under its lock, and a look into the queue before it goes.
class BareObjectList {
public:
    BareObjectList() : _queue(g_async_queue_new()) { g_rec_mutex_init(&_mutex); }
    ~BareObjectList()
    {
        g_async_queue_unref(_queue);
        g_rec_mutex_clear(&_mutex);
    }

    BareObjectList(const BareObjectList&) = delete;
    BareObjectList& operator=(const BareObjectList&) = delete;

    GRecMutex* make()
    {
        auto* const object = g_new(GRecMutex, 1);
        g_rec_mutex_init(object);
        benchmark::DoNotOptimize(_registry.current());
        g_rec_mutex_lock(&_mutex);
        _objects.push_back(object);
        g_rec_mutex_unlock(&_mutex);
        return object;
    }

    void destroy(GRecMutex* object)
    {
        g_async_queue_lock(_queue);
        require(g_async_queue_try_pop_unlocked(_queue) == nullptr, "no event waits");
        g_async_queue_unlock(_queue);
        g_rec_mutex_lock(&_mutex);
        _objects.erase(std::find(_objects.begin(), _objects.end(), object));
        g_rec_mutex_unlock(&_mutex);
        g_rec_mutex_lock(object);
        g_rec_mutex_unlock(object);
        g_rec_mutex_clear(object);
        g_free(object);
    }

private:
    BareRegistry _registry;
    GRecMutex _mutex;
    std::vector<GRecMutex*> _objects;
    GAsyncQueue* _queue;
};

template <int Others>
void libraryObject(benchmark::State& state)
{
    std::vector<std::unique_ptr<Murn::Object>> others;
    others.reserve(Others);
    for (int other = 0; other < Others; ++other)
        others.emplace_back(new Murn::Object);
    bool all = true;
    for (auto _ : state) {
        auto* const object = new Murn::Object;
        all = object->thread() != nullptr && all;
        delete object;
    }
    require(all, "the objects were bound");
}

template <int Others>
void floorObject(benchmark::State& state)
{
    BareObjectList list;
    std::vector<GRecMutex*> others;
    others.reserve(Others);
    for (int other = 0; other < Others; ++other)
        others.push_back(list.make());
    for (auto _ : state)
        list.destroy(list.make());
    for (GRecMutex* const other : others)
        list.destroy(other);
}

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    RatioTable table;
    const auto wall = RatioTable::Clock::Wall;
    table.compare("PostEvent: to another thread, until delivered", postAndWait<LibraryReceiver>,
                  postAndWait<BareThread>, wall);
    table.compare("PostEvent: 1,000 to another thread, each", postBurst<LibraryReceiver>, postBurst<BareThread>, wall);
    table.compare("PostEvent: to the own thread, and pump", libraryPump, floorPump);
    table.compare("SendEvent", librarySend, floorSend);
    table.compare("DispatchEvent: on the own thread", libraryDispatch, floorDispatch);
    table.compare("CurrentThread", libraryCurrent, floorCurrent);
    table.compare("Object: make and destroy", libraryObject<0>, floorObject<0>);
    table.compare("Object: make and destroy, 10,000 others on the thread", libraryObject<10000>, floorObject<10000>);
    return table.run(argc, argv);
}
