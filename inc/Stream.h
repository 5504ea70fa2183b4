// A byte stream on a thread's event loop.
#ifndef MURN_STREAM_H
#define MURN_STREAM_H

#include "Export.h"
#include "IStream.h"

namespace Murn {

class StreamImpl;

/// The implementation of IStream over a `GIOChannel` and a GLib watch on it; TcpStream gives it a socket.
///
/// Reading happens on the thread that the stream is attached to, and everything but writeData() belongs on that
/// thread, or to a time before the stream is shared. A read may be armed, and the stream closed, moved and deleted,
/// from within IStreamReadHandler::readDone(). One thread at a time, not locked.
class MURN_API Stream : public IStream {
public:
    /// A stream without a channel: it writes and reads nothing.
    Stream();
    ~Stream() override;

    /// Any one thread at a time, also while the stream's thread reads, but not during a close, a move or the stream's
    /// end. Writes on the calling thread, as `write` does: a blocking descriptor blocks
    /// the caller, and a peer that is gone raises SIGPIPE, which a host ignores (`signal(SIGPIPE, SIG_IGN)`) if it
    /// is to see -3 here instead. One call may write fewer bytes than asked, so callers loop.
    /// @param data  the bytes
    /// @param size  how many
    /// @return the bytes written; -1 without a channel, and when a non-blocking descriptor takes nothing now; -2 for
    ///         an invalid argument, -3 for any other failure (the negated `GIOError`)
    long writeData(const void* data, unsigned long size) override;

    /// The stream's thread only. Arms one read; nothing happens without a channel. With a buffer, a read that is armed
    /// already ends the process through a fatal check.
    ///
    /// Three forms have a null buffer, and take the place of an armed read silently. With a size, the handler waits for
    /// data or an error, and data that comes is reported as an error, since there is nowhere to put it. With size 0
    /// while the stream watches its channel, reading stops: the armed read is forgotten, with a warning. With size 0
    /// otherwise, the handler is called with a null buffer and 0 as soon as there is something to read, which is left
    /// unread.
    /// @param buffer   where the bytes go; stays the caller's and must live until the read is over
    /// @param size     the room in it, in bytes
    /// @param handler  receives the result; stays the caller's. Not null: data would meet no handler, and the stream
    ///                 would be stuck as clearHandler() says.
    void asyncReadData(void* buffer, unsigned long size, IStreamReadHandler* handler) override;

    /// The stream's thread only. Ends the armed read, whose handler is not called any more, and drops the channel.
    /// The descriptor is not closed here: it belongs to whoever made the channel.
    /// @return 0, or -1 when there is no channel
    int close() override;

    /// The stream's thread only. Drops the watch. Until it is attached again, the stream must not be read: a read that
    /// is armed meanwhile waits on GLib's default context, which no thread of this library runs. An armed read stays
    /// armed without one, and so can neither complete nor be armed again: before a move, end it with clearHandler(), or
    /// move within readDone().
    void detachFromCurrentThread() override;

    /// A stream that is not attached only; else a fatal check ends the process. An armed read is not continued: arm
    /// a new one.
    /// @param thread  the thread whose loop reads from now on; not null
    void attachToThread(Thread* thread) override;

    /// The stream's thread only. Performs the armed read now, without waiting for the loop. The armed read is over
    /// afterwards, even when nothing was there to read and its handler was not called. Does nothing when no read is
    /// armed.
    /// @return whether the stream is to go on watching its channel: 1 when the handler armed another read, or when
    ///         nothing was there to read; 0 otherwise, also when the handler deleted or moved the stream
    int readSome();

    /// The stream's thread only. Forgets the armed read; its handler is not called. The watch stays: if data comes
    /// before another read is armed, a warning reports it, and reading works again only after a stop, a move or a
    /// close.
    void clearHandler();

private:
    friend class StreamImpl;

    IStreamReadHandler* _handler;  // of the armed read; null when none is armed
    void* _buffer;
    unsigned long _size;
    StreamImpl* imp;  // one reference
};

}  // namespace Murn

#endif
