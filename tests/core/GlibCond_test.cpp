// What is behind a condition: its lock, and the count of waiting threads, which is there for whoever debugs a host.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "InterposeGlib.h"
#include "Wait.h"
#include "core/GlibCond.h"

namespace {

using Murn::GlibCond;

// The fields in their order.
struct Fields {
    GMutex* mutex;
    GCond* condition;
    gint32 waiters;
};

static_assert(sizeof(Fields) == sizeof(GlibCond));

Fields fieldsOf(const GlibCond& cond)
{
    Fields fields;
    std::memcpy(&fields, static_cast<const void*>(&cond), sizeof fields);
    return fields;
}

int waiters(GlibCond& cond)
{
    cond.lock();
    const Fields fields = fieldsOf(cond);
    cond.unlock();
    return fields.waiters;
}

}  // namespace

TEST(GlibCond, keepsItsLockAndItsConditionInThisOrder)
{
    GlibCond cond;
    GCond* condition = nullptr;
    GMutex* mutex = nullptr;
    const Interposed waiting(interpose::g_cond_wait, [&](auto, GCond* givenCondition, GMutex* givenMutex) {
        condition = givenCondition;
        mutex = givenMutex;
    });

    cond.lock();
    cond.wait();
    cond.unlock();

    ASSERT_NE(condition, nullptr);
    EXPECT_EQ(fieldsOf(cond).mutex, mutex);
    EXPECT_EQ(fieldsOf(cond).condition, condition);
}

TEST(GlibCond, countsTheThreadsThatWait)
{
    GlibCond cond;
    EXPECT_EQ(0, waiters(cond));

    bool ready = false;  // guarded by the condition's lock
    std::vector<std::thread> waiting;
    for (const int timeoutMs : {-1, 0, 3'600'000}) {
        waiting.emplace_back([&cond, &ready, timeoutMs] {
            cond.lock();
            while (!ready)
                timeoutMs < 0 ? cond.wait() : cond.timedWait(timeoutMs);
            cond.unlock();
        });
    }
    EXPECT_TRUE(waitUntil([&cond] { return waiters(cond) == 3; }));

    cond.lock();
    ready = true;
    cond.broadcast();
    cond.unlock();
    for (std::thread& thread : waiting)
        thread.join();
    EXPECT_EQ(0, waiters(cond));
}

TEST(GlibCond, countsNobodyAfterALimitHasPassed)
{
    GlibCond cond;
    cond.lock();
    cond.timedWait(1);
    cond.timedWait(-1);
    cond.unlock();
    EXPECT_EQ(0, waiters(cond));
}
