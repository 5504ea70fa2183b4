// A stream over one end of a socket pair, and the view of what is inside it.
#ifndef KXPAL_TESTS_NETWORK_STREAM_TEST_H
#define KXPAL_TESTS_NETWORK_STREAM_TEST_H

#include <glib.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "../core/Runtime.h"
#include "Stream.h"
#include "Stream_glib.h"
#include "Streams.h"
#include "core/ThreadImpl.h"

inline GMainContext* contextOf(const Murn::Thread* thread)
{
    return Murn::ThreadImpl::Of(thread)->context();
}

/// The fields of a stream and of what is behind it, at the places that are promised for them.
class StreamFields {
public:
    explicit StreamFields(const Murn::Stream* stream) : _stream(stream) {}

    Murn::IStreamReadHandler* handler() const { return fieldAt<Murn::IStreamReadHandler*>(_stream, 8); }
    void* buffer() const { return fieldAt<void*>(_stream, 16); }
    unsigned long size() const { return fieldAt<unsigned long>(_stream, 24); }
    Murn::StreamImpl* imp() const { return fieldAt<Murn::StreamImpl*>(_stream, 32); }

    gint32 refCount() const { return fieldAt<gint32>(imp(), 8); }
    bool closed() const { return fieldAt<bool>(imp(), 12); }
    GIOChannel* channel() const { return fieldAt<GIOChannel*>(imp(), 16); }
    GSource* watch() const { return fieldAt<GSource*>(imp(), 24); }
    GMainContext* context() const { return fieldAt<GMainContext*>(imp(), 32); }
    Murn::Stream* parent() const { return fieldAt<Murn::Stream*>(imp(), 40); }

private:
    const Murn::Stream* _stream;
};

/// Leaves a stream without its private object, as nothing but a stray write can. The object is kept in sight of the
/// leak sanitizer: the process is about to end.
inline void takeImplAway(Murn::Stream* stream)
{
    [[maybe_unused]] static void* taken = nullptr;
    const void* const nothing = nullptr;
    char* const place = reinterpret_cast<char*>(stream) + 32;
    std::memcpy(&taken, place, sizeof taken);
    std::memcpy(place, &nothing, sizeof nothing);
}

/// One logged message in one line: "Stream 4: Error !".
inline std::string lineOf(const LogMessage& message)
{
    return message.domain.value_or("(no domain)") + " " + std::to_string(message.level) + ": " + message.text;
}

/// Gives a stream a channel over the descriptor, which stays the caller's.
inline void giveChannelOver(int fd, Murn::Stream* stream)
{
    GIOChannel* const channel = g_io_channel_unix_new(fd);
    Stream_setChannel(stream, channel);
    g_io_channel_unref(channel);
}

/// A test with a stream of the main thread over one end of a socket pair.
class StreamTest : public RuntimeTest {
protected:
    StreamTest()
    {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            throw std::runtime_error("no socket pair");
        _end = Descriptor(ends[0]);
        _peer = Peer(ends[1]);
        startOver();
    }

    void TearDown() override
    {
        _stream.reset();
        g_io_channel_unref(std::exchange(_channel, nullptr));
        RuntimeTest::TearDown();
    }

    /// Takes a new stream with a new channel over the same descriptor.
    void startOver()
    {
        _stream = std::make_unique<Murn::Stream>();
        if (_channel != nullptr)
            g_io_channel_unref(_channel);
        _channel = g_io_channel_unix_new(_end.get());
        Stream_setChannel(_stream.get(), _channel);
    }

    /// Arms a read into _buffer for _reader, or for another one.
    void arm() { armFor(_reader); }
    void armFor(Reader& reader) { _stream->asyncReadData(_buffer, sizeof _buffer, &reader); }

    StreamFields fields() const { return StreamFields(_stream.get()); }

    /// What the peer sends has arrived, though the loop has not seen it yet.
    void peerSends(const std::string& text)
    {
        ASSERT_TRUE(_peer.send(text));
        ASSERT_NE(awaitEvents(_end.get(), POLLIN) & POLLIN, 0);
    }

    /// The result of a read that filled _buffer with so many bytes.
    Read got(long count) { return {_buffer, count}; }
    std::string bufferText(std::size_t size) const { return {_buffer, size}; }

    /// What was logged since the last look.
    std::vector<std::string> newLines()
    {
        const std::vector<LogMessage> all = logged();
        std::vector<std::string> lines;
        for (; _linesSeen < all.size(); ++_linesSeen)
            lines.push_back(lineOf(all[_linesSeen]));
        return lines;
    }

    Descriptor _end;
    Peer _peer;
    GIOChannel* _channel = nullptr;  // one reference of the test's own
    std::unique_ptr<Murn::Stream> _stream;
    Reader _reader;
    char _buffer[64] = {};

private:
    std::size_t _linesSeen = 0;
};

/// A result that is reported without a buffer.
inline Read without(long result)
{
    return {nullptr, result};
}

#endif
