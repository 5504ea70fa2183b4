// Byte streams over a GLib channel and a watch on it.
#include "Stream.h"

#include <glib.h>

#include "Application.h"
#include "Check.h"
#include "IStreamReadHandler.h"
#include "Logger.h"
#include "Stream_glib.h"
#include "core/ThreadImpl.h"

namespace Murn {

static_assert(sizeof(std::atomic<gint32>) == sizeof(gint32));

namespace {

constexpr auto watchedConditions = static_cast<GIOCondition>(G_IO_IN | G_IO_ERR | G_IO_HUP | G_IO_NVAL);

GIOCondition without(GIOCondition condition, GIOCondition bit)
{
    return static_cast<GIOCondition>(static_cast<unsigned>(condition) & ~static_cast<unsigned>(bit));
}

}  // namespace

IStreamReadHandler::~IStreamReadHandler() = default;

IStream::IStream() = default;

IStream::~IStream() = default;

void IStream::moveToThread(Thread* thread)
{
    detachFromCurrentThread();
    attachToThread(thread);
}

void IStream::detachFromCurrentThread()
{
    Logger::Warning("IStream", "Detaching a Stream with no thread affinity implementation!");
}

void IStream::attachToThread(Thread* /*thread*/)
{
    Logger::Warning("IStream", "Attaching a Stream with no thread affinity implementation!");
}

/// A call of the handler in progress. The handler may delete the stream, or move it to a thread that uses it at once;
/// afterwards this tells the caller, who must touch nothing of the stream then.
class StreamImpl::HandlerCall {
public:
    explicit HandlerCall(StreamImpl* imp) : _imp(imp), _outer(imp->_calls), _streamLeft(false) { _imp->_calls = this; }
    ~HandlerCall()
    {
        if (!_streamLeft)
            _imp->_calls = _outer;
    }

    HandlerCall(const HandlerCall&) = delete;
    HandlerCall& operator=(const HandlerCall&) = delete;

    bool streamLeft() const { return _streamLeft; }
    /// Notes that the stream leaves. Returns the call around this one.
    HandlerCall* noteStreamLeft()
    {
        _streamLeft = true;
        return _outer;
    }

private:
    StreamImpl* _imp;
    HandlerCall* _outer;
    bool _streamLeft;
};

StreamImpl::StreamImpl(Stream* parent)
    : _refCount(1),
      _closed(false),
      _channel(nullptr),
      _watch(nullptr),
      _context(nullptr),
      _parent(parent),
      _calls(nullptr)
{
}

StreamImpl::~StreamImpl()
{
    dropContext();
    dropWatch();
    dropChannel();
}

void StreamImpl::dropContext()
{
    if (_context == nullptr)
        return;
    g_main_context_unref(_context);
    _context = nullptr;
}

void StreamImpl::dropWatch()
{
    if (_watch == nullptr)
        return;
    g_source_destroy(_watch);
    g_source_unref(_watch);
    _watch = nullptr;
}

void StreamImpl::dropChannel()
{
    if (_channel == nullptr)
        return;
    g_io_channel_unref(_channel);
    _channel = nullptr;
}

void StreamImpl::abandonHandlerCalls()
{
    while (_calls != nullptr)
        _calls = _calls->noteStreamLeft();
}

void StreamImpl::forgetParent()
{
    abandonHandlerCalls();
    _parent = nullptr;
    // Whoever calls a handler keeps this object for a while yet, and the watch must not find it without a stream. It
    // may be another thread's by now.
    if (_refCount > 1)
        dropWatch();
}

StreamImpl* StreamImpl::Of(const Stream* stream)
{
    return stream->imp;
}

void StreamImpl::setChannel(GIOChannel* channel)
{
    const StreamImpl* const imp = this;  // the check prints this name
    MURN_CHECK(imp->_channel==NULL);
    g_io_channel_set_encoding(channel, nullptr, nullptr);
    g_io_channel_set_buffered(channel, FALSE);
    _channel = g_io_channel_ref(channel);
}

void StreamImpl::attachToThread(Thread* thread)
{
    MURN_CHECK(_context == NULL);
    _context = g_main_context_ref(ThreadImpl::Of(thread)->context());
}

void StreamImpl::detachFromCurrentThread()
{
    abandonHandlerCalls();
    dropContext();
    dropWatch();
}

int StreamImpl::close()
{
    _closed = true;
    dropWatch();
    _parent->clearHandler();
    if (_channel == nullptr)
        return -1;
    dropChannel();
    return 0;
}

long StreamImpl::writeData(const void* data, unsigned long size)
{
    if (_channel == nullptr)
        return -1;

    gsize written = 0;
    // The older form of the call, because its error numbers are part of what callers see.
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    const GIOError error = g_io_channel_write(_channel, static_cast<const gchar*>(data), size, &written);
    G_GNUC_END_IGNORE_DEPRECATIONS
    g_io_channel_flush(_channel, nullptr);
    return error == G_IO_ERROR_NONE ? static_cast<long>(written) : -static_cast<long>(error);
}

void StreamImpl::createWatch()
{
    _watch = g_io_create_watch(_channel, watchedConditions);
    g_source_set_callback(_watch, G_SOURCE_FUNC(Stream_SourceCallback), this, nullptr);
    g_source_attach(_watch, _context);
}

void StreamImpl::asyncReadData(void* buffer, unsigned long size, IStreamReadHandler* handler)
{
    if (_channel == nullptr)
        return;
    if (buffer != nullptr)
        MURN_CHECK(_parent->_handler == NULL);

    _parent->_handler = handler;
    _parent->_buffer = buffer;
    _parent->_size = size;
    if (_watch == nullptr) {
        createWatch();
    } else if (buffer == nullptr && size == 0) {
        Logger::Warning("PAL/IStream", "NULL callback => stop reading from source");
        _parent->_handler = nullptr;
        dropWatch();
    }
}

// Calls the handler. Returns whether it armed another read on this stream and this thread.
bool StreamImpl::callHandler(IStreamReadHandler* handler, void* buffer, long result)
{
    const HandlerCall call(this);
    handler->readDone(buffer, result);
    return !call.streamLeft() && _parent->_handler != nullptr;
}

bool StreamImpl::readSome()
{
    IStreamReadHandler* const handler = _parent->_handler;
    void* const buffer = _parent->_buffer;
    const unsigned long size = _parent->_size;
    if (handler == nullptr)
        return false;
    _parent->clearHandler();

    gsize bytesRead = 0;
    GError* error = nullptr;
    switch (g_io_channel_read_chars(_channel, static_cast<gchar*>(buffer), size, &bytesRead, &error)) {
        case G_IO_STATUS_NORMAL:
            return callHandler(handler, buffer, static_cast<long>(bytesRead));
        case G_IO_STATUS_EOF:
            callHandler(handler, nullptr, 0);
            return false;
        case G_IO_STATUS_AGAIN:
            // The armed read is lost, and its handler is not told: a watch that promised data was wrong about it.
            Logger::Error("Stream", "EAGAIN: No data available :( !");
            return true;
        case G_IO_STATUS_ERROR:
            break;
    }

    long result = -1;
    if (error != nullptr) {
        Logger::Warning("Stream", "Error: %s", error->message);
        result = -static_cast<long>(error->code);
        g_error_free(error);
    } else {
        Logger::Warning("Stream", "Error from outer space");
    }
    callHandler(handler, nullptr, result);
    return false;
}

gboolean StreamImpl::Stream_SourceCallback(GIOChannel* /*channel*/, GIOCondition condition, void* data)
{
    return Stream_SourceCallback2(static_cast<StreamImpl*>(data), condition);
}

gboolean StreamImpl::Stream_SourceCallback2(StreamImpl* imp, GIOCondition condition)
{
    if ((condition & watchedConditions) == 0)
        return TRUE;
    if (imp->_parent->_handler == nullptr)
        return imp->reportNoHandler(condition);

    if ((condition & G_IO_IN) != 0) {
        imp->ref();
        const bool goesOn = imp->readSome();
        if (imp->unref())
            return FALSE;
        if (!goesOn)
            return TRUE;
        condition = without(condition, G_IO_IN);
        if ((condition & watchedConditions) == 0)
            return TRUE;
        if (imp->_parent->_handler == nullptr)
            return imp->reportNoHandler(condition);
    }
    return imp->reportCondition(condition);
}

// Tells the handler about a condition other than data.
gboolean StreamImpl::reportCondition(GIOCondition condition)
{
    IStreamReadHandler* const handler = _parent->_handler;
    _parent->clearHandler();

    ref();
    if ((condition & G_IO_HUP) != 0) {
        Logger::Warning("Stream", "Error !");
        callHandler(handler, nullptr, 0);
    } else if ((condition & G_IO_ERR) != 0) {
        Logger::Warning("Stream", "Unknown error !");
        callHandler(handler, nullptr, -1);
    } else {
        Logger::Warning("Stream", "Invalid !");
        callHandler(handler, nullptr, -3);
    }
    return unref() ? FALSE : TRUE;
}

// The watch ends here, but the pointer to it stays: a stream that nobody reads while data comes is stuck until its
// owner stops, moves or closes it.
gboolean StreamImpl::reportNoHandler(GIOCondition condition)
{
    Logger::Warning("Stream", "No handler for data!!!");
    if ((condition & G_IO_IN) != 0)
        Logger::Warning("", "->   data available");
    if ((condition & G_IO_HUP) != 0)
        Logger::Warning("", "->   closed");
    if ((condition & G_IO_NVAL) != 0)
        Logger::Warning("", "->   invalid");
    if ((condition & G_IO_ERR) != 0)
        Logger::Warning("", "->   error");
    return FALSE;
}

Stream::Stream() : _handler(nullptr), _buffer(nullptr), _size(0), imp(nullptr)
{
    imp = new StreamImpl(this);
}

Stream::~Stream()
{
    MURN_CHECK(imp);
    StreamImpl* const impl = imp;
    imp = nullptr;
    impl->forgetParent();
    impl->unref();
}

long Stream::writeData(const void* data, unsigned long size)
{
    MURN_CHECK(imp);
    return imp->writeData(data, size);
}

void Stream::asyncReadData(void* buffer, unsigned long size, IStreamReadHandler* handler)
{
    MURN_CHECK(imp);
    imp->asyncReadData(buffer, size, handler);
}

int Stream::close()
{
    MURN_CHECK(imp);
    return imp->close();
}

void Stream::detachFromCurrentThread()
{
    MURN_CHECK(imp);
    imp->detachFromCurrentThread();
}

void Stream::attachToThread(Thread* thread)
{
    MURN_CHECK(imp);
    imp->attachToThread(thread);
}

int Stream::readSome()
{
    MURN_CHECK(imp);
    // The handler may delete this stream.
    StreamImpl* const impl = imp;
    impl->ref();
    const bool goesOn = impl->readSome();
    impl->unref();
    return goesOn ? 1 : 0;
}

void Stream::clearHandler()
{
    MURN_CHECK(imp);
    _handler = nullptr;
    _buffer = nullptr;
    _size = 0;
}

}  // namespace Murn

void Stream_setChannel(Murn::Stream* stream, GIOChannel* channel)
{
    Murn::StreamImpl* const imp = Murn::StreamImpl::Of(stream);
    MURN_CHECK(imp);
    imp->setChannel(channel);

    // A stream belongs to the thread that gave it its channel.
    Murn::Thread* const thread = Murn::Application::CurrentThread();
    MURN_CHECK(thread);
    stream->moveToThread(thread);
}
