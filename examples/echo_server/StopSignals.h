// SIGINT and SIGTERM as ordinary ends of the main loop.
#ifndef ECHO_SERVER_STOP_SIGNALS_H
#define ECHO_SERVER_STOP_SIGNALS_H

#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

#include <csignal>

/// Ends the main loop when SIGINT or SIGTERM arrives.
///
/// A thread waits for the signals, which all threads block, so that no code ever runs in a signal handler, where next
/// to nothing is allowed. A handler that only sets a flag would do too, but a timer would have to look at the flag
/// again and again, and the end would come late.
class StopSignals : private Murn::Thread {
public:
    /// The main application thread only, before any other thread starts: blocks the signals for this thread and for
    /// all that it starts from now on.
    StopSignals();
    /// Waits until a signal has come.
    ~StopSignals() override;

    /// Begins to wait; the main loop is to run now.
    /// @return false when the system refused the thread
    bool begin();

private:
    void run() override;

    sigset_t _signals;
    Murn::Object* _quitter;  // owned until a signal has come
};

#endif
