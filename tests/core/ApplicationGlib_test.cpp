// The application's record: its fields in their order, the registry's table and the collector's list.
#include "core/ApplicationGlib.h"

#include <algorithm>

#include "InterposeGlib.h"
#include "Runtime.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Murn::Application;
using Murn::ApplicationGlib;
using Murn::Thread;

namespace {

GRecMutex* partOf(const Murn::Mutex& mutex)
{
    return fieldAt<GRecMutex*>(&mutex, 0);
}

/// The mutexes that the calling thread locks in the function, in order.
std::vector<GRecMutex*> lockedBy(const std::function<void()>& function)
{
    std::vector<GRecMutex*> locked;
    const Interposed lock(interpose::g_rec_mutex_lock, [&, thread = g_thread_self()](auto* real, GRecMutex* mutex) {
        if (g_thread_self() == thread)
            locked.push_back(mutex);
        real(mutex);
    });
    function();
    return locked;
}

class ApplicationGlibTest : public RuntimeTest {
protected:
    ApplicationGlib& record() { return *fieldAt<ApplicationGlib*>(&application(), 8); }
};

TEST_F(ApplicationGlibTest, hasItsFieldsInTheirOrder)
{
    const auto offset = [this](const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&record());
    };

    EXPECT_EQ(offset(&record()._registryMutex), 0);
    EXPECT_EQ(offset(&record()._threads), 8);
    EXPECT_EQ(offset(&record()._arguments), 16);
    EXPECT_EQ(offset(&record()._mainThread), 40);
    EXPECT_EQ(offset(&record()._garbageMutex), 48);
    EXPECT_EQ(offset(&record()._garbage), 56);
}

TEST_F(ApplicationGlibTest, mapsEachSystemThreadsHandleToItsThread)
{
    GHashTable* const threads = record()._threads;
    EXPECT_EQ(g_hash_table_size(threads), 1U);
    EXPECT_EQ(g_hash_table_lookup(threads, g_thread_self()), mainThread());

    onExternalThread([&] {
        EXPECT_EQ(g_hash_table_size(threads), 2U);
        EXPECT_EQ(g_hash_table_lookup(threads, g_thread_self()), Thread::CurrentThread());
    });

    EXPECT_EQ(g_hash_table_size(threads), 1U);
}

TEST_F(ApplicationGlibTest, takesTheRegistrysLockToLookUpTheCurrentThread)
{
    std::atomic<bool> found{false};
    record()._registryMutex.lock();
    std::thread other([&] {
        EXPECT_EQ(Application::CurrentThread(), nullptr);
        found = true;
    });
    // Time for a look-up without the lock to slip through; one that takes it cannot be early.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(found);
    record()._registryMutex.unlock();
    other.join();
}

TEST_F(ApplicationGlibTest, takesTheRegistrysLockForItsArgumentsAndItsThreads)
{
    GRecMutex* const registry = partOf(record()._registryMutex);
    Thread* thread = nullptr;

    EXPECT_THAT(lockedBy([] { Application::Arguments(); }), ElementsAre(registry));
    EXPECT_THAT(lockedBy([&] { thread = Application::CurrentThread(); }), ElementsAre(registry));
    // Each time once more for the check of the current thread.
    EXPECT_THAT(lockedBy([&] { Application::UnregisterThread(thread); }), ElementsAre(registry, registry));
    EXPECT_THAT(lockedBy([&] { Application::RegisterThread(thread); }), ElementsAre(registry, registry));
}

TEST_F(ApplicationGlibTest, takesTheRegistrysLockToComeAndToGo)
{
    endApplication();
    std::unique_ptr<Application> application;

    const std::vector<GRecMutex*> first = lockedBy([&] { application = std::make_unique<Application>(0, nullptr); });
    GRecMutex* const registry = partOf(fieldAt<ApplicationGlib*>(application.get(), 8)->_registryMutex);
    const std::vector<GRecMutex*> last = lockedBy([&] { application.reset(); });

    // Two of these are for the main thread, which registers, or three, as it unregisters and delivers its last events.
    EXPECT_EQ(std::count(first.begin(), first.end(), registry), 1 + 2);
    EXPECT_EQ(std::count(last.begin(), last.end(), registry), 1 + 3);
}

TEST_F(ApplicationGlibTest, holdsAnObjectsAffinityWhileItAsksItsThread)
{
    Murn::Object object;
    int locks = 0;
    const Interposed lock(interpose::g_mutex_lock, [&](auto* real, GMutex* mutex) {
        ++locks;
        real(mutex);
    });

    Application::DispatchEvent(&object, new Murn::Event(100, nullptr));

    EXPECT_EQ(locks, 1);
}

TEST_F(ApplicationGlibTest, takesTheCollectorsLockToLookAndToAdd)
{
    GRecMutex* const garbage = partOf(record()._garbageMutex);
    BodyThread body([] {});
    body.start();

    EXPECT_THAT(lockedBy([&] { Application::AddToThreadGarbageCollector(&body); }), ElementsAre(garbage, garbage));

    record()._garbage.clear();
    body.join();
}

/// Whether nobody holds the mutex, not even the calling thread.
bool isFree(Murn::Mutex& mutex)
{
    bool locked = false;
    onForeignThread([&] {
        locked = mutex.tryLock();
        if (locked)
            mutex.unlock();
    });
    return locked;
}

/// A joinable thread that runs its loop and calls the function when it is deleted.
class FinalThread : public Thread {
public:
    explicit FinalThread(std::function<void()> final) : _final(std::move(final)) { setJoinable(true); }
    ~FinalThread() override { _final(); }

    /// Comes back when the loop runs.
    void startLoop()
    {
        std::promise<void> looping;
        FunctionTimer timer([&] {
            timer.stop();
            looping.set_value();
        });
        timer.start(0, this);
        start();
        looping.get_future().wait();
    }

private:
    std::function<void()> _final;
};

TEST_F(ApplicationGlibTest, locksNothingWhileItStopsJoinsAndDeletesACollectedThread)
{
    Murn::Mutex& garbage = record()._garbageMutex;
    interpose::CallLog steps;
    const auto noteStep = [&](const std::string& name) {
        steps.note(name + (isFree(garbage) ? ", not locked" : ", locked"));
    };
    auto* const thread = new FinalThread([&] { noteStep("deletion"); });
    thread->startLoop();
    Application::AddToThreadGarbageCollector(thread);
    const Interposed stopping(interpose::g_main_loop_quit, [&](auto* real, GMainLoop* loop) {
        noteStep("stop");
        real(loop);
    });
    const Interposed joining(interpose::g_thread_join, [&](auto* real, GThread* handle) {
        noteStep("join");
        return real(handle);
    });

    endApplication();

    EXPECT_THAT(steps.calls(), ElementsAre("stop, not locked", "join, not locked", "deletion, not locked"));
}

TEST_F(ApplicationGlibTest, collectsNothingWithoutARecord)
{
    ApplicationGlib* const saved = &record();
    char* const field = reinterpret_cast<char*>(&application()) + 8;
    std::memset(field, 0, sizeof saved);
    Application::AddToThreadGarbageCollector(nullptr);
    std::memcpy(field, &saved, sizeof saved);

    EXPECT_THAT(record()._garbage, IsEmpty());
}

TEST_F(ApplicationGlibTest, keepsTheThreadsThatWaitForCollection)
{
    BodyThread body([] {});
    body.start();

    Application::AddToThreadGarbageCollector(&body);

    EXPECT_THAT(record()._garbage, ElementsAre(&body));
    record()._garbage.clear();
    body.join();
}

TEST_F(ApplicationGlibTest, takesNoThreadsForCollectionWithoutTheRecord)
{
    BodyThread body([] {});
    body.start();
    body.join();
    ApplicationGlib* const kept = &record();
    ApplicationGlib* const none = nullptr;
    char* const place = reinterpret_cast<char*>(&application()) + 8;

    std::memcpy(place, &none, sizeof none);
    Application::AddToThreadGarbageCollector(&body);
    std::memcpy(place, &kept, sizeof kept);

    EXPECT_THAT(record()._garbage, IsEmpty());
}

TEST_F(ApplicationGlibTest, ownsTheMainThread)
{
    EXPECT_EQ(record()._mainThread, mainThread());
    EXPECT_THAT(record()._arguments, IsEmpty());
}

}  // namespace
