// The application's record: its fields in their order, the registry's table and the collector's list.
#include "core/ApplicationGlib.h"

#include "Runtime.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Murn::Application;
using Murn::ApplicationGlib;
using Murn::Thread;

namespace {

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
    ApplicationGlib* const kept = &record();
    ApplicationGlib* const none = nullptr;
    char* const place = reinterpret_cast<char*>(&application()) + 8;

    std::memcpy(place, &none, sizeof none);
    Application::AddToThreadGarbageCollector(&body);
    std::memcpy(place, &kept, sizeof kept);

    EXPECT_THAT(record()._garbage, IsEmpty());
    body.join();
}

TEST_F(ApplicationGlibTest, ownsTheMainThread)
{
    EXPECT_EQ(record()._mainThread, mainThread());
    EXPECT_THAT(record()._arguments, IsEmpty());
}

}  // namespace
