// Tells the thread sanitizer what the system's GLib does: preloaded where no GLib was built with the sanitizer.
//
// GLib's mutexes, conditions and queues are futexes, which the sanitizer does not see. Each function here says so and
// passes the call on. Recursive mutexes, threads and the wake-up of a context need nothing: they are made of pthread
// calls and of an eventfd. What happens inside GLib stays unseen, which is why a GLib of the sanitizer's own is better.
#include <dlfcn.h>
#include <glib.h>

// Weak, so that the library can also be loaded into programs that have no sanitizer.
extern "C" void __tsan_acquire(void* address) __attribute__((weak));
extern "C" void __tsan_release(void* address) __attribute__((weak));

namespace {

void acquire(void* address)
{
    if (__tsan_acquire != nullptr)
        __tsan_acquire(address);
}

void release(void* address)
{
    if (__tsan_release != nullptr)
        __tsan_release(address);
}

template <typename Function>
Function* next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// The function that ours stands in front of.
#define REAL(name) static auto* const real = next(name, #name)

extern "C" {

void g_async_queue_push(GAsyncQueue* queue, gpointer data)
{
    REAL(g_async_queue_push);
    release(queue);
    real(queue, data);
}

void g_async_queue_push_unlocked(GAsyncQueue* queue, gpointer data)
{
    REAL(g_async_queue_push_unlocked);
    release(queue);
    real(queue, data);
}

void g_async_queue_lock(GAsyncQueue* queue)
{
    REAL(g_async_queue_lock);
    real(queue);
    acquire(queue);
}

void g_async_queue_unlock(GAsyncQueue* queue)
{
    REAL(g_async_queue_unlock);
    release(queue);
    real(queue);
}

gint g_async_queue_length(GAsyncQueue* queue)
{
    REAL(g_async_queue_length);
    const gint length = real(queue);
    acquire(queue);
    return length;
}

gpointer g_async_queue_pop(GAsyncQueue* queue)
{
    REAL(g_async_queue_pop);
    gpointer const data = real(queue);
    acquire(queue);
    return data;
}

gpointer g_async_queue_try_pop(GAsyncQueue* queue)
{
    REAL(g_async_queue_try_pop);
    gpointer const data = real(queue);
    acquire(queue);
    return data;
}

gpointer g_async_queue_try_pop_unlocked(GAsyncQueue* queue)
{
    REAL(g_async_queue_try_pop_unlocked);
    gpointer const data = real(queue);
    acquire(queue);
    return data;
}

void g_async_queue_unref(GAsyncQueue* queue)
{
    REAL(g_async_queue_unref);
    release(queue);
    real(queue);
}

void g_mutex_lock(GMutex* mutex)
{
    REAL(g_mutex_lock);
    real(mutex);
    acquire(mutex);
}

gboolean g_mutex_trylock(GMutex* mutex)
{
    REAL(g_mutex_trylock);
    const gboolean locked = real(mutex);
    if (locked != FALSE)
        acquire(mutex);
    return locked;
}

void g_mutex_unlock(GMutex* mutex)
{
    REAL(g_mutex_unlock);
    release(mutex);
    real(mutex);
}

void g_cond_wait(GCond* condition, GMutex* mutex)
{
    REAL(g_cond_wait);
    release(mutex);
    real(condition, mutex);
    acquire(mutex);
}

gboolean g_cond_wait_until(GCond* condition, GMutex* mutex, gint64 end)
{
    REAL(g_cond_wait_until);
    release(mutex);
    const gboolean signalled = real(condition, mutex, end);
    acquire(mutex);
    return signalled;
}
}
