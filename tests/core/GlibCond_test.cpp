// The count of waiting threads behind a condition, which is there for whoever debugs a host.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

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

int waiters(GlibCond& cond)
{
    cond.lock();
    Fields fields;
    std::memcpy(&fields, static_cast<const void*>(&cond), sizeof fields);
    cond.unlock();
    return fields.waiters;
}

}  // namespace

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
