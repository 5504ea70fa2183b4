// Disturbs the order in which threads run: preloaded into a program, it lets threads yield or sleep for a moment before
// and after the calls through which they meet. What goes wrong in one of a million runs shows in one of some hundred.
//
//     KXPAL_PERTURB_SEED=7 LD_PRELOAD=.../libkxpal_perturb.so tests/core/Runtime_stress_test
//
// The seed fixes the decisions of each thread, though not the whole order. KXPAL_PERTURB_PERCENT is how many calls are
// disturbed, 20 unless told otherwise, and KXPAL_PERTURB_OFFSET is added to the seed.
#include <dlfcn.h>
#include <glib.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace {

unsigned int numberFrom(const char* variable, unsigned int otherwise)
{
    const char* const text = std::getenv(variable);
    return text != nullptr ? static_cast<unsigned int>(std::strtoul(text, nullptr, 10)) : otherwise;
}

std::atomic<unsigned int> threadCount;

unsigned int firstOfThisThread()
{
    static const unsigned int seed =
        numberFrom("KXPAL_PERTURB_SEED", static_cast<unsigned int>(::getpid())) + numberFrom("KXPAL_PERTURB_OFFSET", 0);
    const unsigned int thread = ++threadCount;
    return (seed * 2654435761U + thread * 40503U) | 1U;
}

unsigned int percent()
{
    static const unsigned int value = numberFrom("KXPAL_PERTURB_PERCENT", 20);
    return value;
}

unsigned int draw()
{
    __attribute__((tls_model("initial-exec"))) thread_local unsigned int state = 0;
    if (state == 0)
        state = firstOfThisThread();
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
}

void disturb()
{
    const unsigned int drawn = draw();
    if (drawn % 100 >= percent())
        return;
    const int error = errno;
    if ((drawn & 0x400) != 0) {
        ::sched_yield();
    } else {
        const timespec moment{0, static_cast<long>(drawn >> 11) % 100000};
        ::nanosleep(&moment, nullptr);
    }
    errno = error;
}

template <typename Function>
Function* next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// Disturbs before and after a call.
struct Disturbance {
    Disturbance() { disturb(); }
    ~Disturbance() { disturb(); }

    Disturbance(const Disturbance&) = delete;
    Disturbance& operator=(const Disturbance&) = delete;
};

}  // namespace

// Defines a function that is disturbed, in front of the real one.
#define DISTURBED(result, name, parameters, arguments)                                     \
    extern "C" __attribute__((visibility("default"))) result name parameters               \
    {                                                                                      \
        static auto* const real = next(static_cast<result(*) parameters>(nullptr), #name); \
        const Disturbance here;                                                            \
        return real arguments;                                                             \
    }

DISTURBED(void, g_mutex_lock, (GMutex * mutex), (mutex))
DISTURBED(void, g_mutex_unlock, (GMutex * mutex), (mutex))
DISTURBED(void, g_rec_mutex_lock, (GRecMutex * mutex), (mutex))
DISTURBED(void, g_rec_mutex_unlock, (GRecMutex * mutex), (mutex))
DISTURBED(void, g_cond_signal, (GCond * condition), (condition))
DISTURBED(void, g_cond_broadcast, (GCond * condition), (condition))
DISTURBED(void, g_async_queue_push, (GAsyncQueue * queue, gpointer item), (queue, item))
DISTURBED(gpointer, g_async_queue_pop, (GAsyncQueue * queue), (queue))
DISTURBED(gpointer, g_async_queue_try_pop, (GAsyncQueue * queue), (queue))
DISTURBED(gint, g_async_queue_length, (GAsyncQueue * queue), (queue))
DISTURBED(void, g_main_context_wakeup, (GMainContext * context), (context))
DISTURBED(gboolean, g_main_context_iteration, (GMainContext * context, gboolean mayBlock), (context, mayBlock))
DISTURBED(void, g_main_loop_run, (GMainLoop * loop), (loop))
DISTURBED(void, g_main_loop_quit, (GMainLoop * loop), (loop))
DISTURBED(guint, g_source_attach, (GSource * source, GMainContext* context), (source, context))
DISTURBED(void, g_source_destroy, (GSource * source), (source))
DISTURBED(GThread*, g_thread_try_new, (const gchar* name, GThreadFunc function, gpointer data, GError** error),
          (name, function, data, error))
DISTURBED(gpointer, g_thread_join, (GThread * thread), (thread))
DISTURBED(void, g_log_remove_handler, (const gchar* domain, guint id), (domain, id))
DISTURBED(int, poll, (pollfd * descriptors, nfds_t count, int timeoutMs), (descriptors, count, timeoutMs))
DISTURBED(int, select, (int count, fd_set* read, fd_set* write, fd_set* except, timeval* limit),
          (count, read, write, except, limit))
DISTURBED(int, close, (int descriptor), (descriptor))
DISTURBED(ssize_t, recvfrom, (int fd, void* buffer, size_t size, int flags, sockaddr* from, socklen_t* length),
          (fd, buffer, size, flags, from, length))
DISTURBED(ssize_t, sendto, (int fd, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length),
          (fd, data, size, flags, to, length))
