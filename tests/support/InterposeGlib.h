// Replaceable functions: GLib. See Interpose.h.
//
// GLib's own calls of these functions stay inside it; what arrives here are the calls of the library under test
// and of the tests themselves.
#ifndef KXPAL_TESTS_INTERPOSE_GLIB_H
#define KXPAL_TESTS_INTERPOSE_GLIB_H

#include <glib.h>

#include <cstdarg>

#include "Interpose.h"

#define KXPAL_INTERPOSE_GLIB(X)                                                                                    \
    X(gint64, g_get_real_time, (), (), )                                                                           \
    X(GDateTime*, g_date_time_new_now_utc, (), (), )                                                               \
    X(GDateTime*, g_date_time_ref, (GDateTime * dateTime), (dateTime), )                                           \
    X(void, g_date_time_unref, (GDateTime * dateTime), (dateTime), )                                               \
    X(gint64, g_get_monotonic_time, (), (), )                                                                      \
    X(void, g_logv, (const gchar* domain, GLogLevelFlags level, const gchar* format, va_list args),                \
      (domain, level, format, args), )                                                                             \
    X(guint, g_log_set_handler, (const gchar* domain, GLogLevelFlags levels, GLogFunc function, gpointer data),    \
      (domain, levels, function, data), )                                                                          \
    X(void, g_log_remove_handler, (const gchar* domain, guint id), (domain, id), )                                 \
    X(GLogFunc, g_log_set_default_handler, (GLogFunc function, gpointer data), (function, data), )                 \
    X(gpointer, g_try_malloc_n, (gsize count, gsize size), (count, size), )                                        \
    X(void, g_rec_mutex_lock, (GRecMutex * mutex), (mutex), )                                                      \
    X(void, g_rec_mutex_unlock, (GRecMutex * mutex), (mutex), )                                                    \
    X(gboolean, g_rec_mutex_trylock, (GRecMutex * mutex), (mutex), )                                               \
    X(void, g_rec_mutex_clear, (GRecMutex * mutex), (mutex), )                                                     \
    X(void, g_cond_wait, (GCond * cond, GMutex * mutex), (cond, mutex), )                                          \
    X(void, g_cond_signal, (GCond * cond), (cond), )                                                               \
    X(void, g_cond_broadcast, (GCond * cond), (cond), )                                                            \
    X(void, g_cond_clear, (GCond * cond), (cond), )                                                                \
    X(void, g_mutex_clear, (GMutex * mutex), (mutex), )                                                            \
    X(void, g_mutex_lock, (GMutex * mutex), (mutex), )                                                             \
    X(void, g_mutex_unlock, (GMutex * mutex), (mutex), )                                                           \
    X(void, g_async_queue_lock, (GAsyncQueue * queue), (queue), )                                                  \
    X(void, g_async_queue_unlock, (GAsyncQueue * queue), (queue), )                                                \
    X(gpointer, g_async_queue_try_pop_unlocked, (GAsyncQueue * queue), (queue), )                                  \
    X(void, g_async_queue_push_unlocked, (GAsyncQueue * queue, gpointer item), (queue, item), )                    \
    X(gpointer, g_try_malloc, (gsize size), (size), )                                                              \
    X(void, g_main_context_wakeup, (GMainContext * context), (context), )                                          \
    X(GMainContext*, g_main_context_ref, (GMainContext * context), (context), )                                    \
    X(void, g_main_context_unref, (GMainContext * context), (context), )                                           \
    X(void, g_error_free, (GError * error), (error), )                                                             \
    X(void, g_main_loop_run, (GMainLoop * loop), (loop), )                                                         \
    X(void, g_main_loop_unref, (GMainLoop * loop), (loop), )                                                       \
    X(void, g_main_loop_quit, (GMainLoop * loop), (loop), )                                                        \
    X(gpointer, g_thread_join, (GThread * thread), (thread), )                                                     \
    X(gboolean, g_main_context_iteration, (GMainContext * context, gboolean mayBlock), (context, mayBlock), )      \
    X(GThread*, g_thread_try_new, (const gchar* name, GThreadFunc function, gpointer data, GError** error),        \
      (name, function, data, error), )                                                                             \
    X(GIOError, g_io_channel_write, (GIOChannel * channel, const gchar* data, gsize count, gsize* written),        \
      (channel, data, count, written), )                                                                           \
    X(GIOStatus, g_io_channel_flush, (GIOChannel * channel, GError * *error), (channel, error), )                  \
    X(GIOStatus, g_io_channel_read_chars,                                                                          \
      (GIOChannel * channel, gchar * buffer, gsize count, gsize * bytesRead, GError * *error),                     \
      (channel, buffer, count, bytesRead, error), )                                                                \
    X(GSource*, g_io_create_watch, (GIOChannel * channel, GIOCondition condition), (channel, condition), )         \
    X(void, g_io_channel_unref, (GIOChannel * channel), (channel), )                                               \
    X(GSource*, g_source_new, (GSourceFuncs * functions, guint size), (functions, size), )                         \
    X(void, g_source_set_callback, (GSource * source, GSourceFunc function, gpointer data, GDestroyNotify notify), \
      (source, function, data, notify), )                                                                          \
    X(guint, g_source_attach, (GSource * source, GMainContext * context), (source, context), )                     \
    X(void, g_source_add_poll, (GSource * source, GPollFD * descriptor), (source, descriptor), )                   \
    X(void, g_source_destroy, (GSource * source), (source), )                                                      \
    X(void, g_source_unref, (GSource * source), (source), )                                                        \
    X(void, g_async_queue_unref, (GAsyncQueue * queue), (queue), )                                                 \
    X(GAsyncQueue*, g_async_queue_new, (), (), )                                                                   \
    X(GAsyncQueue*, g_async_queue_new_full, (GDestroyNotify discarded), (discarded), )                             \
    X(GAsyncQueue*, g_async_queue_ref, (GAsyncQueue * queue), (queue), )                                           \
    X(void, g_async_queue_push, (GAsyncQueue * queue, gpointer item), (queue, item), )                             \
    X(gpointer, g_async_queue_pop, (GAsyncQueue * queue), (queue), )                                               \
    X(gboolean, g_cond_wait_until, (GCond * cond, GMutex * mutex, gint64 end), (cond, mutex, end), )

namespace interpose {
G_GNUC_BEGIN_IGNORE_DEPRECATIONS
KXPAL_INTERPOSE_GLIB(KXPAL_INTERPOSE_DECLARE)
G_GNUC_END_IGNORE_DEPRECATIONS
}  // namespace interpose

#endif
