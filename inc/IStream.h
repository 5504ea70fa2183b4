// What every byte stream offers.
#ifndef MURN_I_STREAM_H
#define MURN_I_STREAM_H

#include "Export.h"

namespace Murn {

class IStreamReadHandler;
class Thread;

/// A channel of bytes that is written synchronously and read asynchronously: its owner arms one read at a time, and
/// the read completes on the event loop of the thread that the stream is attached to. Stream is the implementation.
class MURN_API IStream {
public:
    IStream();
    virtual ~IStream();

    IStream(const IStream&) = delete;
    IStream& operator=(const IStream&) = delete;

    /// Writes on the calling thread.
    /// @param data  the bytes
    /// @param size  how many
    /// @return the bytes written, which may be fewer than asked; negative on failure
    virtual long writeData(const void* data, unsigned long size) = 0;

    /// Arms one read.
    /// @param buffer   where the bytes go; stays the caller's and must live until the read is over
    /// @param size     the room in it, in bytes
    /// @param handler  receives the result; stays the caller's
    virtual void asyncReadData(void* buffer, unsigned long size, IStreamReadHandler* handler) = 0;

    /// Ends the armed read and gives the channel up.
    /// @return 0, or -1 when there is no channel
    virtual int close() = 0;

    /// Detaches the stream from its thread and attaches it to another.
    /// @param thread  the thread whose loop reads from now on
    virtual void moveToThread(Thread* thread);

    /// Ends the stream's dealings with its thread. This default only logs a warning: the stream knows no threads.
    virtual void detachFromCurrentThread();

    /// Begins to use a thread's loop. This default only logs a warning: the stream knows no threads.
    /// @param thread  the thread whose loop reads from now on
    virtual void attachToThread(Thread* thread);
};

}  // namespace Murn

#endif
