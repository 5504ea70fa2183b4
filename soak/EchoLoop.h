// A thread that connections live on.
#ifndef SOAK_ECHO_LOOP_H
#define SOAK_ECHO_LOOP_H

#include <kxPAL/Thread.h>

#include "LoopThread.h"

class EchoConnection;

/// A loop that connections come to. It must be left by all of them before it ends.
class EchoLoop {
public:
    EchoLoop();
    ~EchoLoop();

    EchoLoop(const EchoLoop&) = delete;
    EchoLoop& operator=(const EchoLoop&) = delete;

    /// Ends the loop and waits for the thread's end.
    void finish();

    Murn::Thread* thread() { return _loop.thread(); }
    /// Any thread. Has the connection, whose stream belongs to this loop by now, begin here.
    void begin(EchoConnection* connection);

private:
    class Hub;

    LoopThread _loop;
    Hub* _hub;  // deletes itself on the loop; null once finished
};

#endif
