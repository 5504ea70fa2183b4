// The GLib context behind the calling thread's loop, so that a floor can be measured on the same one.
#ifndef KXPAL_BENCH_LOOP_CONTEXT_H
#define KXPAL_BENCH_LOOP_CONTEXT_H

#include <glib.h>
#include <kxPAL/Application.h>
#include <kxPAL/Timer.h>

/// The library does not hand it out; but whoever is called by a source of it can ask GLib.
inline GMainContext* contextOfThisThread()
{
    class Asker : public Murn::Timer {
    public:
        void timeout() override { context = g_source_get_context(g_main_current_source()); }

        GMainContext* context = nullptr;
    };

    Asker asker;
    asker.start(0, nullptr);
    while (asker.context == nullptr)
        Murn::Application::ProcessEvents(true);
    return asker.context;
}

#endif
