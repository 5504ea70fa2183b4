// What is behind a thread pool: its record, its workers, and the steps of its beginning and its end.
#include "core/ThreadPoolImpl.h"

#include <kxPAL/ThreadPool.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <new>
#include <type_traits>

#include "FatalTest.h"
#include "InterposeGlib.h"
#include "Runtime.h"
#include "Units.h"
#include "VirtualTable.h"
#include "core/ThreadImpl.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Murn::Thread;
using Murn::ThreadImpl;
using Murn::ThreadPool;
using Murn::ThreadPoolImpl;
using Murn::ThreadPoolThread;

namespace {

ThreadPoolImpl* recordOf(const ThreadPool& pool)
{
    return fieldAt<ThreadPoolImpl*>(&pool, 0);
}

using Names = std::vector<const void*>;

/// The place of an address among those noted, as text.
std::string numberOf(const Names& names, const void* address)
{
    const auto found = std::find(names.begin(), names.end(), address);
    return found == names.end() ? "?" : std::to_string(found - names.begin());
}

class ThreadPoolImplTest : public RuntimeTest {
protected:
    interpose::CallLog _log;
};

TEST_F(ThreadPoolImplTest, keepsItsQueueItsCountAndItsThreadsInThisOrder)
{
    const ThreadPool pool(3);
    const ThreadPoolImpl* const record = recordOf(pool);

    EXPECT_EQ(sizeof(ThreadPoolImpl), 24U);
    EXPECT_EQ(fieldAt<GAsyncQueue*>(record, 0), record->_queue);
    EXPECT_EQ(fieldAt<gint32>(record, 8), 3);
    EXPECT_EQ(fieldAt<ThreadPoolThread*>(record, 16), record->_threads);
    EXPECT_NE(record->_queue, nullptr);
    EXPECT_NE(record->_threads, nullptr);
}

TEST_F(ThreadPoolImplTest, hasThreadsWithThePoolsRecordAsTheirOneField)
{
    const ThreadPool pool(2);
    const ThreadPoolImpl* const record = recordOf(pool);

    EXPECT_TRUE((std::is_base_of_v<Thread, ThreadPoolThread>));
    EXPECT_EQ(sizeof(ThreadPoolThread), sizeof(Thread) + sizeof(void*));
    for (int index = 0; index < 2; ++index)
        EXPECT_EQ(fieldAt<const ThreadPoolImpl*>(&record->_threads[index], sizeof(Thread)), record);
    constexpr std::size_t runSlot = 2;
    EXPECT_EQ(virtualSlot(&ThreadPoolThread::run), runSlot);
}

TEST_F(ThreadPoolImplTest, hasWorkersThatTheRuntimeKnowsByTheSameAddress)
{
    ThreadPoolThread* threads = nullptr;
    Thread* current = nullptr;
    {
        ThreadPool pool(1);
        threads = recordOf(pool)->_threads;
        pool.run(new FunctionUnit([&] { current = Thread::CurrentThread(); }));
    }

    EXPECT_EQ(current, threads);
}

TEST_F(ThreadPoolImplTest, takesAReferenceOnTheQueueForEachWorkerRightBeforeItStarts)
{
    const GAsyncQueue* queue = nullptr;
    const Interposed referring(interpose::g_async_queue_ref, [&](auto real, GAsyncQueue* referred) {
        queue = referred;
        _log.note("reference");
        return real(referred);
    });
    const Interposed starting(interpose::g_thread_try_new, _log.noting("start"));

    const ThreadPool pool(2);

    EXPECT_THAT(_log.calls(), ElementsAre("reference", "start", "reference", "start"));
    EXPECT_EQ(queue, recordOf(pool)->_queue);
}

TEST_F(ThreadPoolImplTest, beginsAndEndsInTheOrderOfItsThreads)
{
    Names started;
    std::map<const void*, const void*> handleOf;
    const Interposed starting(interpose::g_thread_try_new,
                              [&](auto real, const gchar* name, GThreadFunc function, gpointer data, GError** error) {
                                  GThread* const handle = real(name, function, data, error);
                                  started.push_back(data);
                                  handleOf[data] = handle;
                                  return handle;
                              });
    auto pool = std::make_unique<ThreadPool>(3);
    const GAsyncQueue* const queue = recordOf(*pool)->_queue;
    Names inArray;
    Names handles;
    Names contexts;
    for (int index = 0; index < 3; ++index) {
        ThreadImpl* const impl = ThreadImpl::Of(&recordOf(*pool)->_threads[index]);
        inArray.push_back(impl);
        handles.push_back(handleOf[impl]);
        contexts.push_back(impl->context());
    }
    EXPECT_EQ(started, inArray);
    Names markers;
    const Interposed pushing(interpose::g_async_queue_push, [&](auto real, GAsyncQueue* pushed, gpointer item) {
        _log.note(pushed == queue ? "push" : "push elsewhere");
        markers.push_back(item);
        real(pushed, item);
    });
    const Interposed joining(interpose::g_thread_join, [&](auto real, GThread* handle) {
        _log.note("join " + numberOf(handles, handle));
        return real(handle);
    });
    const Interposed releasing(interpose::g_async_queue_unref, [&](auto real, GAsyncQueue* released) {
        if (released == queue)
            _log.note("release queue");
        real(released);
    });
    const Interposed destroying(interpose::g_main_context_unref, [&](auto real, GMainContext* context) {
        _log.note("destroy " + numberOf(contexts, context));
        real(context);
    });

    pool.reset();

    EXPECT_THAT(_log.calls(), ElementsAre("push", "push", "push",     //
                                          "join 0", "release queue",  //
                                          "join 1", "release queue",  //
                                          "join 2", "release queue",  //
                                          "destroy 2", "destroy 1", "destroy 0", "release queue"));
    EXPECT_THAT(markers, ElementsAre(markers[0], markers[0], markers[0]));
}

TEST_F(ThreadPoolImplTest, looksForLeftWorkWhenTheWorkersAreGone)
{
    EXPECT_FATAL_AFTER(
        {
            auto* const pool = new ThreadPool(1);
            const GMainContext* const worker = ThreadImpl::Of(&recordOf(*pool)->_threads[0])->context();
            const Interposed joining(interpose::g_thread_join, [&](auto real, GThread* handle) {
                const gpointer result = real(handle);
                pool->run(new FunctionUnit([] {}));
                return result;
            });
            const Interposed destroying(interpose::g_main_context_unref, [&](auto real, GMainContext* context) {
                if (context == worker)
                    std::printf("The worker is gone.\n");
                real(context);
            });
            delete pool;
        },
        "The worker is gone.\n", "g_async_queue_length(_queue) == 0", "src/core/ThreadPool.cpp");
}

TEST_F(ThreadPoolImplTest, pushesOneMarkerAndNeverAUnit)
{
    Names pushed;
    const Interposed pushing(interpose::g_async_queue_push, [&](auto real, GAsyncQueue* queue, gpointer item) {
        pushed.push_back(item);
        real(queue, item);
    });
    auto* const unit = new FunctionUnit([] {});

    {
        ThreadPool pool(1);
        pool.run(unit);
    }
    std::make_unique<ThreadPool>(1).reset();

    ASSERT_EQ(pushed.size(), 3U);
    EXPECT_EQ(pushed[0], unit);
    EXPECT_NE(pushed[1], unit);
    EXPECT_NE(pushed[1], nullptr);
    EXPECT_EQ(pushed[2], pushed[1]);
}

TEST_F(ThreadPoolImplTest, doesNothingAtItsEndWithoutARecord)
{
    const Interposed releasing(interpose::g_async_queue_unref, _log.noting("release"));
    ThreadPoolImpl* record = nullptr;
    {
        ThreadPool pool(0);
        record = recordOf(pool);
        std::memset(static_cast<void*>(&pool), 0, sizeof(void*));
    }
    EXPECT_THAT(_log.calls(), IsEmpty());

    delete record;
}

TEST_F(ThreadPoolImplTest, takesBackWhatItHasWhenAWorkerCannotBeMade)
{
    Names contexts;
    const GAsyncQueue* queue = nullptr;
    int made = 0;
    const Interposed attaching(interpose::g_source_attach, [&](auto real, GSource* source, GMainContext* context) {
        contexts.push_back(context);
        return real(source, context);
    });
    // The first thing that a new thread needs of GLib. An exception of the allocator would come from there.
    const Interposed failing(interpose::g_async_queue_new_full, [&](auto real, GDestroyNotify discarded) {
        if (++made == 3)
            throw std::bad_alloc();
        return real(discarded);
    });
    const Interposed creating(interpose::g_async_queue_new, [&](auto real) {
        GAsyncQueue* const created = real();
        queue = created;
        return created;
    });
    const Interposed releasing(interpose::g_async_queue_unref, [&](auto real, GAsyncQueue* released) {
        if (released == queue)
            _log.note("release queue");
        real(released);
    });
    const Interposed starting(interpose::g_thread_try_new, _log.noting("start"));
    const Interposed destroying(interpose::g_main_context_unref, [&](auto real, GMainContext* context) {
        _log.note("destroy " + numberOf(contexts, context));
        real(context);
    });

    EXPECT_THROW(ThreadPool(4), std::bad_alloc);

    EXPECT_THAT(_log.calls(), ElementsAre("destroy 1", "destroy 0", "release queue"));
}

}  // namespace
