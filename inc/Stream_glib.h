// What is behind Stream. Private to the library and not installed.
#ifndef MURN_STREAM_GLIB_H
#define MURN_STREAM_GLIB_H

#include <glib.h>

#include <atomic>

#include "Check.h"

namespace Murn {

class IStreamReadHandler;
class Stream;
class Thread;

/// The channel of a stream and the watch on it. References are counted: the stream holds one, and whoever calls the
/// handler holds another meanwhile, so that the handler may delete the stream. See Stream for the operations.
class StreamImpl {
public:
    explicit StreamImpl(Stream* parent);
    virtual ~StreamImpl();

    StreamImpl(const StreamImpl&) = delete;
    StreamImpl& operator=(const StreamImpl&) = delete;

    /// The private object of a stream.
    static StreamImpl* Of(const Stream* stream);

    void ref() { _refCount.fetch_add(1, std::memory_order_relaxed); }
    /// Destroys this object when the reference was the last one. Returns whether it did.
    bool unref()
    {
        MURN_CHECK(_refCount>=1);
        if (_refCount.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return false;
        delete this;
        return true;
    }

    long writeData(const void* data, unsigned long size);
    void asyncReadData(void* buffer, unsigned long size, IStreamReadHandler* handler);
    int close();
    bool readSome();
    void detachFromCurrentThread();
    void attachToThread(Thread* thread);
    void setChannel(GIOChannel* channel);
    /// The stream is going. Handlers that run at this moment find nobody to report to any more.
    void forgetParent();

    static gboolean Stream_SourceCallback(GIOChannel* channel, GIOCondition condition, void* data);

private:
    class HandlerCall;

    static gboolean Stream_SourceCallback2(StreamImpl* imp, GIOCondition condition);
    gboolean reportCondition(GIOCondition condition);
    gboolean reportNoHandler(GIOCondition condition);
    bool callHandler(IStreamReadHandler* handler, void* buffer, long result);
    void createWatch();
    void dropContext();
    void dropWatch();
    void dropChannel();
    void abandonHandlerCalls();

    // Not touched by several threads at once by design, but a stream that its handler moves to another thread may be
    // used there before the handler's caller here has dropped its reference.
    std::atomic<gint32> _refCount;
    bool _closed;
    GIOChannel* _channel;    // one reference; null before it is set and after the close
    GSource* _watch;         // one reference; null when none
    GMainContext* _context;  // one reference; null when detached
    Stream* _parent;         // not owned; null once the stream is gone
    HandlerCall* _calls;     // the handler calls in progress on the stream's thread, innermost first
};

}  // namespace Murn

/// Gives a stream its channel, of which it takes a reference of its own, and attaches it to the calling thread. A
/// stream that has a channel, and a thread that is not registered with the application, end the process through
/// fatal checks.
void Stream_setChannel(Murn::Stream* stream, GIOChannel* channel);

#endif
