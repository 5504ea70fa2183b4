// The running half of a timer: its source, and what the source calls.
#include "core/GlibTimer.h"

#include "InterposeGlib.h"
#include "Runtime.h"
#include "core/ThreadImpl.h"

using ::testing::ElementsAre;

using Murn::GlibTimer;
using Murn::Timer;

namespace {

constexpr unsigned int neverMs = 3'600'000;

class GlibTimerTest : public RuntimeTest {};

TEST_F(GlibTimerTest, keepsItsSourceAndTheTimerInThisOrder)
{
    Timer timer;
    const GlibTimer running(&timer, neverMs, nullptr);

    EXPECT_EQ(sizeof(GlibTimer), 24U);
    EXPECT_NE(fieldAt<GSource*>(&running, 8), nullptr);
    EXPECT_EQ(fieldAt<Timer*>(&running, 16), &timer);
}

TEST_F(GlibTimerTest, isWhatARunningTimerKeeps)
{
    Timer timer;
    timer.start(neverMs, nullptr);

    auto* const running = fieldAt<GlibTimer*>(&timer, 8);

    EXPECT_EQ(fieldAt<Timer*>(running, 16), &timer);
}

TEST_F(GlibTimerTest, attachesItsSourceToTheThreadsContextAndHoldsOneReference)
{
    Murn::Thread thread;
    Timer timer;

    const GlibTimer elsewhere(&timer, neverMs, &thread);
    const GlibTimer here(&timer, neverMs, nullptr);

    auto* const sourceElsewhere = fieldAt<GSource*>(&elsewhere, 8);
    auto* const sourceHere = fieldAt<GSource*>(&here, 8);
    EXPECT_EQ(g_source_get_context(sourceElsewhere), Murn::ThreadImpl::Of(&thread)->context());
    EXPECT_EQ(g_source_get_context(sourceHere), Murn::ThreadImpl::Of(mainThread())->context());
    EXPECT_EQ(sourceHere->ref_count, 2U);  // its own and the context's
}

TEST_F(GlibTimerTest, givesTheSourceTheTimerAndNoDestroyNotification)
{
    GSourceFunc function = nullptr;
    gpointer data = nullptr;
    bool notifies = true;
    const Interposed noted(interpose::g_source_set_callback, [&](auto real, GSource* source, GSourceFunc givenFunction,
                                                                 gpointer givenData, GDestroyNotify notify) {
        function = givenFunction;
        data = givenData;
        notifies = notify != nullptr;
        real(source, givenFunction, givenData, notify);
    });
    Timer timer;

    const GlibTimer running(&timer, neverMs, nullptr);

    EXPECT_EQ(function, &GlibTimer::Timer_Callback);
    EXPECT_EQ(data, &timer);
    EXPECT_FALSE(notifies);
}

TEST_F(GlibTimerTest, callsTheTimerAndAsksToBeCalledAgain)
{
    int firings = 0;
    FunctionTimer timer([&] { ++firings; });

    EXPECT_EQ(GlibTimer::Timer_Callback(static_cast<Timer*>(&timer)), TRUE);

    EXPECT_EQ(firings, 1);
}

TEST_F(GlibTimerTest, destroysItsSourceAndReleasesIt)
{
    Timer timer;
    interpose::CallLog calls;
    auto* const running = new GlibTimer(&timer, neverMs, nullptr);
    auto* const source = g_source_ref(fieldAt<GSource*>(running, 8));
    {
        const Interposed destroying(interpose::g_source_destroy, calls.noting("destroy"));
        const Interposed releasing(interpose::g_source_unref, calls.noting("unref"));
        delete running;
    }

    EXPECT_THAT(calls.calls(), ElementsAre("destroy", "unref"));
    EXPECT_TRUE(g_source_is_destroyed(source));
    EXPECT_EQ(source->ref_count, 1U);
    g_source_unref(source);
}

}  // namespace
