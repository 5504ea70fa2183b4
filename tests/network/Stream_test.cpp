// The operations of a stream: its channel, its thread, writing, arming and reading.
#include "StreamTest.h"

#include <ostream>
#include <string>
#include <vector>

#include "FatalTest.h"
#include "InterposeGlib.h"
#include "LiveMemory.h"
#include "VirtualTable.h"

using Murn::Stream;
using Murn::StreamImpl;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Lt;

namespace {

const std::string source = "src/network/Stream.cpp";

// ---- What a stream is made of

TEST_F(StreamTest, keepsItsFieldsInOrder)
{
    arm();

    EXPECT_EQ(sizeof(Stream), 40U);
    EXPECT_EQ(fields().handler(), &_reader);
    EXPECT_EQ(fields().buffer(), _buffer);
    EXPECT_EQ(fields().size(), sizeof _buffer);
    EXPECT_EQ(fields().imp(), StreamImpl::Of(_stream.get()));
}

TEST_F(StreamTest, keepsTheFieldsOfItsPrivateObjectInOrder)
{
    arm();

    EXPECT_EQ(fields().refCount(), 1);
    EXPECT_FALSE(fields().closed());
    EXPECT_EQ(fields().channel(), _channel);
    ASSERT_NE(fields().watch(), nullptr);
    EXPECT_EQ(g_source_get_context(fields().watch()), contextOf(mainThread()));
    EXPECT_EQ(fields().context(), contextOf(mainThread()));
    EXPECT_EQ(fields().parent(), _stream.get());
}

TEST_F(StreamTest, overridesTheInterfaceAndAddsNoSlots)
{
    EXPECT_EQ(virtualSlot(&Stream::writeData), 2U);
    EXPECT_EQ(virtualSlot(&Stream::asyncReadData), 3U);
    EXPECT_EQ(virtualSlot(&Stream::close), 4U);
    EXPECT_EQ(virtualSlot(&Stream::detachFromCurrentThread), 6U);
    EXPECT_EQ(virtualSlot(&Stream::attachToThread), 7U);
    EXPECT_FALSE(isVirtual(&Stream::readSome));
    EXPECT_FALSE(isVirtual(&Stream::clearHandler));
}

TEST_F(StreamTest, startsWithoutChannelThreadAndRead)
{
    const Stream stream;
    const StreamFields fresh(&stream);

    EXPECT_EQ(fresh.handler(), nullptr);
    EXPECT_EQ(fresh.buffer(), nullptr);
    EXPECT_EQ(fresh.size(), 0U);
    EXPECT_EQ(fresh.refCount(), 1);
    EXPECT_FALSE(fresh.closed());
    EXPECT_EQ(fresh.channel(), nullptr);
    EXPECT_EQ(fresh.watch(), nullptr);
    EXPECT_EQ(fresh.context(), nullptr);
    EXPECT_EQ(fresh.parent(), &stream);
}

// ---- A stream that lost its private object

struct Operation {
    const char* name;
    void (*call)(Stream*);

    friend std::ostream& operator<<(std::ostream& os, const Operation& operation) { return os << operation.name; }
};

class StreamWithoutImplTest : public StreamTest, public ::testing::WithParamInterface<Operation> {};

TEST_P(StreamWithoutImplTest, endsTheProcess)
{
    EXPECT_FATAL(
        {
            takeImplAway(_stream.get());
            GetParam().call(_stream.release());
        },
        "imp", source);
}

INSTANTIATE_TEST_SUITE_P(
    Stream, StreamWithoutImplTest,
    ::testing::Values(
        Operation{"writeData", [](Stream* stream) { stream->writeData("x", 1); }},
        Operation{"asyncReadData", [](Stream* stream) { stream->asyncReadData(nullptr, 0, nullptr); }},
        Operation{"close", [](Stream* stream) { stream->close(); }},
        Operation{"readSome", [](Stream* stream) { stream->readSome(); }},
        Operation{"clearHandler", [](Stream* stream) { stream->clearHandler(); }},
        Operation{"moveToThread", [](Stream* stream) { stream->moveToThread(Murn::Thread::CurrentThread()); }},
        Operation{"detachFromCurrentThread", [](Stream* stream) { stream->detachFromCurrentThread(); }},
        Operation{"attachToThread", [](Stream* stream) { stream->attachToThread(Murn::Thread::CurrentThread()); }},
        Operation{"setChannel", [](Stream* stream) { giveChannelOver(0, stream); }},
        Operation{"destructor", [](Stream* stream) { delete stream; }}),
    [](const auto& test) { return test.param.name; });

// ---- The channel

TEST_F(StreamTest, readsAndWritesItsChannelInBinaryWithoutBuffering)
{
    EXPECT_EQ(g_io_channel_get_encoding(_channel), nullptr);
    EXPECT_FALSE(g_io_channel_get_buffered(_channel));
}

TEST_F(StreamTest, takesAReferenceOfItsOwnToItsChannel)
{
    EXPECT_EQ(_channel->ref_count, 2);

    _stream.reset();

    EXPECT_EQ(_channel->ref_count, 1);
}

TEST_F(StreamTest, belongsToTheThreadThatGaveItTheChannel)
{
    Worker worker;
    Stream stream;

    worker.run([&] { giveChannelOver(_end.get(), &stream); });

    EXPECT_EQ(StreamFields(&stream).context(), contextOf(worker.thread()));
}

// A stream that notes how it comes to its thread.
class NotingStream : public Stream {
public:
    void moveToThread(Murn::Thread* thread) override
    {
        _calls.push_back("move");
        _thread = thread;
        Stream::moveToThread(thread);
    }
    void detachFromCurrentThread() override
    {
        _calls.push_back("detach");
        Stream::detachFromCurrentThread();
    }
    void attachToThread(Murn::Thread* thread) override
    {
        _calls.push_back("attach");
        Stream::attachToThread(thread);
    }

    std::vector<std::string> _calls;
    Murn::Thread* _thread = nullptr;
};

TEST_F(StreamTest, comesToItsThreadByMovingThere)
{
    NotingStream stream;

    giveChannelOver(_end.get(), &stream);

    EXPECT_THAT(stream._calls, ElementsAre("move", "detach", "attach"));
    EXPECT_EQ(stream._thread, mainThread());
}

TEST_F(StreamTest, takesASecondChannelForAFatalError)
{
    EXPECT_FATAL(giveChannelOver(_end.get(), _stream.get()), "imp->_channel==NULL", source);
}

TEST_F(StreamTest, takesAChannelFromAnUnregisteredThreadForAFatalError)
{
    Stream stream;
    EXPECT_FATAL(onForeignThread([&] { giveChannelOver(_end.get(), &stream); }), "thread", source);
}

TEST_F(StreamTest, looksAtItsChannelBeforeItLooksAtTheThread)
{
    EXPECT_FATAL(onForeignThread([&] { giveChannelOver(_end.get(), _stream.get()); }), "imp->_channel==NULL", source);
}

// ---- The thread

TEST_F(StreamTest, takesAnAttachmentToASecondThreadForAFatalError)
{
    EXPECT_FATAL(_stream->attachToThread(mainThread()), "_context == NULL", source);
}

TEST_F(StreamTest, holdsAReferenceToTheContextOfItsThread)
{
    interpose::CallLog calls;
    const Interposed taken(interpose::g_main_context_ref, calls.noting("ref"));
    const Interposed dropped(interpose::g_main_context_unref, calls.noting("unref"));
    _stream->detachFromCurrentThread();
    EXPECT_EQ(fields().context(), nullptr);

    {
        Murn::Thread shortLived;
        _stream->attachToThread(&shortLived);
        EXPECT_EQ(fields().context(), contextOf(&shortLived));
    }
    // The context is still there, as the sanitizers would tell otherwise.
    g_main_context_wakeup(fields().context());
    _stream->detachFromCurrentThread();

    EXPECT_THAT(calls.calls(), ElementsAre("unref", "ref", "unref", "unref"));
}

TEST_F(StreamTest, dropsItsContextAndThenItsWatchWhenItIsDetached)
{
    arm();
    GSource* const watch = g_source_ref(fields().watch());
    interpose::CallLog calls;
    const Interposed context(interpose::g_main_context_unref, calls.noting("context"));
    const Interposed destroyed(interpose::g_source_destroy, calls.noting("destroy"));
    const Interposed dropped(interpose::g_source_unref, calls.noting("unref"));

    _stream->detachFromCurrentThread();

    EXPECT_THAT(calls.calls(), ElementsAre("context", "destroy", "unref"));
    EXPECT_EQ(fields().context(), nullptr);
    EXPECT_EQ(fields().watch(), nullptr);
    EXPECT_TRUE(g_source_is_destroyed(watch));
    g_source_unref(watch);
}

TEST_F(StreamTest, dropsNothingWhenItIsDetachedTwice)
{
    _stream->detachFromCurrentThread();
    interpose::CallLog calls;
    const Interposed context(interpose::g_main_context_unref, calls.noting("context"));
    const Interposed destroyed(interpose::g_source_destroy, calls.noting("destroy"));

    _stream->detachFromCurrentThread();

    EXPECT_THAT(calls.calls(), IsEmpty());
}

TEST_F(StreamTest, makesNoWatchWhenItIsAttached)
{
    arm();
    interpose::CallLog calls;
    const Interposed watches(interpose::g_io_create_watch, calls.noting("watch"));

    _stream->moveToThread(mainThread());

    EXPECT_THAT(calls.calls(), IsEmpty());
    EXPECT_EQ(fields().watch(), nullptr);
}

TEST_F(StreamTest, leavesAnArmedReadInPlaceWhenItIsDetached)
{
    arm();

    _stream->moveToThread(mainThread());

    EXPECT_EQ(fields().handler(), &_reader);
    EXPECT_EQ(fields().buffer(), _buffer);
    EXPECT_EQ(fields().size(), sizeof _buffer);
    peerSends("abc");
    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_THAT(_reader.reads(), IsEmpty());
    EXPECT_FATAL(arm(), "_parent->_handler == NULL", source);
}

TEST_F(StreamTest, readsOnTheNewThreadWhenTheReadWasEndedBeforeTheMove)
{
    arm();
    _stream->clearHandler();
    _stream->moveToThread(mainThread());
    peerSends("abc");

    arm();

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
}

TEST_F(StreamTest, movesBetweenThreadsThatAreIdleAndReadsOnTheNewOne)
{
    Worker first;
    Worker second;
    peerSends("abc");
    _stream->moveToThread(first.thread());
    first.run([&] { _stream->moveToThread(second.thread()); });

    second.run([&] { arm(); });

    EXPECT_TRUE(waitUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
    EXPECT_THAT(_reader.threads(), ElementsAre(second.thread()));
    EXPECT_EQ(bufferText(3), "abc");
    second.run([&] { _stream.reset(); });
}

// ---- Writing

TEST_F(StreamTest, writesNothingWithoutAChannel)
{
    interpose::CallLog calls;
    const Interposed writes(interpose::g_io_channel_write, calls.noting("write"));
    const Interposed flushes(interpose::g_io_channel_flush, calls.noting("flush"));
    Stream fresh;
    _stream->close();

    EXPECT_EQ(fresh.writeData("abc", 3), -1);
    EXPECT_EQ(_stream->writeData("abc", 3), -1);
    EXPECT_THAT(calls.calls(), IsEmpty());
}

TEST_F(StreamTest, writesToItsPeer)
{
    EXPECT_EQ(_stream->writeData("abcdef", 3), 3);
    EXPECT_EQ(_stream->writeData("", 0), 0);
    EXPECT_EQ(_stream->writeData("xyz", 3), 3);

    EXPECT_EQ(_peer.receive(6), "abcxyz");
}

TEST_F(StreamTest, writesOnTheCallersThreadWhateverThreadItBelongsTo)
{
    long written = 0;

    onForeignThread([&] { written = _stream->writeData("abc", 3); });

    EXPECT_EQ(written, 3);
    EXPECT_EQ(_peer.receive(3), "abc");
}

TEST_F(StreamTest, reportsHowMuchOfALargeWriteWentOut)
{
    ::fcntl(_end.get(), F_SETFL, O_NONBLOCK);
    const std::string large(16 * 1024 * 1024, 'x');

    const long written = _stream->writeData(large.data(), large.size());

    EXPECT_THAT(written, AllOf(Ge(1), Lt(static_cast<long>(large.size()))));
    EXPECT_EQ(_peer.receive(static_cast<std::size_t>(written)).size(), static_cast<std::size_t>(written));
}

TEST_F(StreamTest, reportsThatANonBlockingDescriptorTakesNothingNow)
{
    ::fcntl(_end.get(), F_SETFL, O_NONBLOCK);
    const std::string large(1024 * 1024, 'x');

    long written = 0;
    while (written >= 0)
        written = _stream->writeData(large.data(), large.size());

    EXPECT_EQ(written, -1);
}

TEST_F(StreamTest, reportsThatThePeerIsGoneWhenSigpipeIsIgnored)
{
    const IgnoredSigpipe ignored;
    _peer.leave();

    EXPECT_EQ(_stream->writeData("abc", 3), -3);
}

TEST_F(StreamTest, negatesTheErrorOfAWriteAndDropsItsCount)
{
    GIOError outcome = G_IO_ERROR_NONE;
    const Interposed writes(interpose::g_io_channel_write,
                            [&](auto*, GIOChannel*, const gchar*, gsize, gsize* written) {
                                *written = 2;
                                return outcome;
                            });

    EXPECT_EQ(_stream->writeData("abc", 3), 2);
    outcome = G_IO_ERROR_AGAIN;
    EXPECT_EQ(_stream->writeData("abc", 3), -1);
    outcome = G_IO_ERROR_INVAL;
    EXPECT_EQ(_stream->writeData("abc", 3), -2);
    outcome = G_IO_ERROR_UNKNOWN;
    EXPECT_EQ(_stream->writeData("abc", 3), -3);
}

TEST_F(StreamTest, flushesAfterEachWriteWhateverItsOutcome)
{
    interpose::CallLog calls;
    GIOError outcome = G_IO_ERROR_NONE;
    const Interposed writes(interpose::g_io_channel_write,
                            [&](auto*, GIOChannel* channel, const gchar* data, gsize count, gsize*) {
                                EXPECT_EQ(channel, _channel);
                                calls.note("write " + std::string(data, count));
                                return outcome;
                            });
    const Interposed flushes(interpose::g_io_channel_flush, [&](auto*, GIOChannel* channel, GError** error) {
        EXPECT_EQ(channel, _channel);
        EXPECT_EQ(error, nullptr);
        calls.note("flush");
        return G_IO_STATUS_ERROR;  // of no interest
    });

    EXPECT_EQ(_stream->writeData("abc", 3), 0);
    outcome = G_IO_ERROR_UNKNOWN;
    EXPECT_EQ(_stream->writeData("xyz", 2), -3);

    EXPECT_THAT(calls.calls(), ElementsAre("write abc", "flush", "write xy", "flush"));
}

// ---- Arming

TEST_F(StreamTest, watchesItsChannelOnTheContextOfItsThreadAlone)
{
    std::vector<GIOCondition> conditions;
    std::vector<GMainContext*> contexts;
    const Interposed watches(interpose::g_io_create_watch, [&](auto real, GIOChannel* channel, GIOCondition condition) {
        EXPECT_EQ(channel, _channel);
        conditions.push_back(condition);
        return real(channel, condition);
    });
    const Interposed attached(interpose::g_source_attach, [&](auto real, GSource* watch, GMainContext* context) {
        contexts.push_back(context);
        return real(watch, context);
    });

    arm();

    EXPECT_THAT(conditions, ElementsAre(static_cast<GIOCondition>(57)));
    EXPECT_THAT(contexts, ElementsAre(contextOf(mainThread())));
    EXPECT_EQ(g_source_get_context(fields().watch()), contextOf(mainThread()));
}

TEST_F(StreamTest, watchesWithItsOwnCallbackAndNoDestroyNotification)
{
    interpose::CallLog calls;
    const Interposed set(interpose::g_source_set_callback,
                         [&](auto real, GSource* watch, GSourceFunc callback, gpointer data, GDestroyNotify notify) {
                             calls.note("callback");
                             EXPECT_EQ(callback, G_SOURCE_FUNC(StreamImpl::Stream_SourceCallback));
                             EXPECT_EQ(data, fields().imp());
                             EXPECT_EQ(notify, nullptr);
                             real(watch, callback, data, notify);
                         });

    arm();

    EXPECT_THAT(calls.calls(), ElementsAre("callback"));
}

TEST_F(StreamTest, keepsOneReferenceToItsWatch)
{
    arm();

    // The other one is the context's.
    EXPECT_EQ(fields().watch()->ref_count, 2U);
}

TEST_F(StreamTest, takesASecondReadForAFatalErrorWhileOneIsArmed)
{
    arm();
    EXPECT_FATAL(arm(), "_parent->_handler == NULL", source);
}

TEST_F(StreamTest, takesAReadForAFatalErrorWhileOneWithoutBufferIsArmed)
{
    _stream->asyncReadData(nullptr, 8, &_reader);
    EXPECT_FATAL(arm(), "_parent->_handler == NULL", source);
}

TEST_F(StreamTest, usesOneWatchForReadAfterRead)
{
    arm();
    GSource* const watch = fields().watch();
    _reader.then([&] { arm(); });
    peerSends("abc");

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));

    EXPECT_EQ(fields().watch(), watch);
    EXPECT_FALSE(g_source_is_destroyed(watch));
    peerSends("de");
    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 2; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(3), got(2)));
}

TEST_F(StreamTest, usesTheSameWatchForAReadThatTakesTheOneThatWasCleared)
{
    arm();
    GSource* const watch = fields().watch();
    _stream->clearHandler();

    arm();

    EXPECT_EQ(fields().watch(), watch);
    peerSends("abc");
    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
}

TEST_F(StreamTest, readsNoMoreThanTheArmedCapacity)
{
    peerSends("abcdef");

    _stream->asyncReadData(_buffer, 4, &_reader);

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(4)));
    EXPECT_EQ(bufferText(6), std::string("abcd\0\0", 6));
}

TEST_F(StreamTest, armsNothingWithoutAChannel)
{
    interpose::CallLog calls;
    const Interposed watches(interpose::g_io_create_watch, calls.noting("watch"));
    Stream fresh;
    _stream->close();

    for (Stream* const stream : {&fresh, _stream.get()}) {
        // The second one would be fatal if the first one counted.
        stream->asyncReadData(_buffer, sizeof _buffer, &_reader);
        stream->asyncReadData(_buffer, sizeof _buffer, &_reader);
        stream->asyncReadData(nullptr, 1, &_reader);
        stream->asyncReadData(nullptr, 0, &_reader);
        EXPECT_EQ(StreamFields(stream).handler(), nullptr);
        EXPECT_EQ(StreamFields(stream).watch(), nullptr);
    }
    EXPECT_THAT(calls.calls(), IsEmpty());
}

TEST_F(StreamTest, reportsDataAsAnErrorToAReadThatHasASizeButNoBuffer)
{
    _stream->asyncReadData(nullptr, 8, &_reader);
    EXPECT_EQ(fields().handler(), &_reader);
    EXPECT_EQ(fields().buffer(), nullptr);
    EXPECT_EQ(fields().size(), 8U);

    peerSends("abc");

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(without(-1)));
    EXPECT_THAT(newLines(), ElementsAre("GLib 2: g_io_channel_read_chars: assertion 'buf != NULL' failed",
                                        "Stream 4: Error from outer space"));
}

TEST_F(StreamTest, replacesAnArmedReadByOneWithoutBuffer)
{
    Reader second;
    arm();
    GSource* const watch = fields().watch();

    _stream->asyncReadData(nullptr, 8, &second);

    EXPECT_EQ(fields().handler(), &second);
    EXPECT_EQ(fields().buffer(), nullptr);
    EXPECT_EQ(fields().size(), 8U);
    EXPECT_EQ(fields().watch(), watch);
    EXPECT_FALSE(g_source_is_destroyed(watch));
}

TEST_F(StreamTest, tellsThatDataIsThereAndLeavesItUnreadWithoutBufferAndSize)
{
    _stream->asyncReadData(nullptr, 0, &_reader);
    ASSERT_NE(fields().watch(), nullptr);
    EXPECT_EQ(pumpWhatIsReady(), 0);
    _reader.then([&] { arm(); });

    peerSends("abc");

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 2; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(without(0), got(3)));
}

TEST_F(StreamTest, stopsReadingWhenItIsArmedWithoutBufferAndSize)
{
    arm();
    GSource* const watch = g_source_ref(fields().watch());

    _stream->asyncReadData(nullptr, 0, &_reader);

    EXPECT_THAT(newLines(), ElementsAre("PAL/IStream 4: NULL callback => stop reading from source"));
    EXPECT_EQ(fields().handler(), nullptr);
    EXPECT_EQ(fields().buffer(), nullptr);
    EXPECT_EQ(fields().size(), 0U);
    EXPECT_EQ(fields().watch(), nullptr);
    EXPECT_TRUE(g_source_is_destroyed(watch));
    EXPECT_EQ(watch->ref_count, 1U);
    g_source_unref(watch);
    peerSends("abc");
    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_THAT(_reader.reads(), IsEmpty());
}

TEST_F(StreamTest, readsAgainAfterItStoppedReading)
{
    arm();
    _stream->asyncReadData(nullptr, 0, &_reader);
    EXPECT_THAT(newLines(), ElementsAre("PAL/IStream 4: NULL callback => stop reading from source"));

    arm();

    peerSends("abc");
    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
}

// ---- Reading one armed read

// Stands in for the reading call of the channel.
class ScriptedRead {
public:
    explicit ScriptedRead(GIOStatus status, int errorCode = -1, const char* errorText = "")
        : _interposed(interpose::g_io_channel_read_chars,
                      [this, status, errorCode, errorText](auto*, GIOChannel*, gchar* buffer, gsize size, gsize* count,
                                                           GError** error) {
                          ++_calls;
                          _size = size;
                          *count = 0;
                          if (status == G_IO_STATUS_NORMAL) {
                              buffer[0] = 'x';
                              *count = 1;
                          } else if (errorCode >= 0) {
                              *error = g_error_new_literal(G_IO_CHANNEL_ERROR, errorCode, errorText);
                          }
                          return status;
                      })
    {
    }

    int calls() const { return _calls; }
    gsize size() const { return _size; }

private:
    int _calls = 0;
    gsize _size = 0;
    Interposed<GIOStatus(GIOChannel*, gchar*, gsize, gsize*, GError**)> _interposed;
};

TEST_F(StreamTest, readsWithoutTheLoopWhatIsThere)
{
    arm();
    peerSends("abc");

    EXPECT_EQ(_stream->readSome(), 0);

    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
    EXPECT_EQ(bufferText(3), "abc");
    EXPECT_EQ(fields().handler(), nullptr);
}

TEST_F(StreamTest, readsNothingWhenNoReadIsArmed)
{
    const ScriptedRead read(G_IO_STATUS_NORMAL);

    EXPECT_EQ(_stream->readSome(), 0);
    EXPECT_EQ(Stream().readSome(), 0);

    EXPECT_EQ(read.calls(), 0);
}

TEST_F(StreamTest, hasForgottenTheReadWhenItCallsTheHandler)
{
    arm();
    const ScriptedRead read(G_IO_STATUS_NORMAL);
    _reader.then([&] {
        EXPECT_EQ(fields().handler(), nullptr);
        EXPECT_EQ(fields().buffer(), nullptr);
        EXPECT_EQ(fields().size(), 0U);
    });

    EXPECT_EQ(_stream->readSome(), 0);

    EXPECT_THAT(_reader.reads(), ElementsAre(got(1)));
    EXPECT_EQ(read.size(), sizeof _buffer);
}

TEST_F(StreamTest, goesOnWhenTheHandlerArmedAnotherRead)
{
    arm();
    const ScriptedRead read(G_IO_STATUS_NORMAL);
    _reader.then([&] { arm(); });

    EXPECT_EQ(_stream->readSome(), 1);
    EXPECT_EQ(_stream->readSome(), 0);

    EXPECT_THAT(_reader.reads(), ElementsAre(got(1), got(1)));
}

TEST_F(StreamTest, endsAtTheEndOfTheStreamEvenIfAnotherReadIsArmed)
{
    arm();
    const ScriptedRead read(G_IO_STATUS_EOF);
    _reader.then([&] { arm(); });

    EXPECT_EQ(_stream->readSome(), 0);

    EXPECT_THAT(_reader.reads(), ElementsAre(without(0)));
    EXPECT_EQ(fields().handler(), &_reader);
}

TEST_F(StreamTest, losesTheReadWhenNothingIsThere)
{
    arm();
    const ScriptedRead read(G_IO_STATUS_AGAIN);

    EXPECT_EQ(_stream->readSome(), 1);

    EXPECT_THAT(newLines(), ElementsAre("Stream 2: EAGAIN: No data available :( !"));
    EXPECT_THAT(_reader.reads(), IsEmpty());
    EXPECT_EQ(fields().handler(), nullptr);
    EXPECT_EQ(fields().buffer(), nullptr);
    EXPECT_EQ(fields().size(), 0U);
}

TEST_F(StreamTest, losesTheReadWhenANonBlockingDescriptorIsEmpty)
{
    ::fcntl(_end.get(), F_SETFL, O_NONBLOCK);
    arm();

    EXPECT_EQ(_stream->readSome(), 1);

    EXPECT_THAT(newLines(), ElementsAre("Stream 2: EAGAIN: No data available :( !"));
    EXPECT_THAT(_reader.reads(), IsEmpty());
}

TEST_F(StreamTest, reportsTheNegatedCodeOfAReadErrorAndItsMessage)
{
    for (const int code : {G_IO_CHANNEL_ERROR_INVAL, G_IO_CHANNEL_ERROR_IO, G_IO_CHANNEL_ERROR_FAILED}) {
        Reader reader;
        _stream->asyncReadData(_buffer, sizeof _buffer, &reader);
        const ScriptedRead read(G_IO_STATUS_ERROR, code, "100% broken");
        reader.then([&] { arm(); });

        EXPECT_EQ(_stream->readSome(), 0);

        EXPECT_THAT(reader.reads(), ElementsAre(without(-code)));
        EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error: 100% broken"));
        EXPECT_EQ(fields().handler(), &_reader);
        _stream->clearHandler();
    }
}

TEST_F(StreamTest, reportsAReadErrorThatNothingIsKnownAbout)
{
    arm();
    const ScriptedRead read(G_IO_STATUS_ERROR);

    EXPECT_EQ(_stream->readSome(), 0);

    EXPECT_THAT(_reader.reads(), ElementsAre(without(-1)));
    EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error from outer space"));
}

TEST_F(StreamTest, warnsBeforeItReportsAReadError)
{
    arm();
    const ScriptedRead read(G_IO_STATUS_ERROR);
    _reader.then([&] { EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error from outer space")); });

    EXPECT_EQ(_stream->readSome(), 0);

    EXPECT_EQ(_reader.count(), 1U);
}

TEST_F(StreamTest, survivesAHandlerThatDeletesItInReadSome)
{
    for (const GIOStatus status : {G_IO_STATUS_NORMAL, G_IO_STATUS_EOF, G_IO_STATUS_ERROR}) {
        auto stream = std::make_unique<Stream>();
        giveChannelOver(_end.get(), stream.get());
        Reader reader;
        stream->asyncReadData(_buffer, sizeof _buffer, &reader);
        const ScriptedRead read(status);
        reader.then([&] { stream.reset(); });

        EXPECT_EQ(stream->readSome(), 0);

        EXPECT_EQ(reader.count(), 1U);
    }
    EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error from outer space"));
}

TEST_F(StreamTest, survivesADeletionInAReadWithinARead)
{
    arm();
    peerSends("abc");
    _reader.then([&] {
        arm();
        peerSends("de");
        EXPECT_EQ(_stream->readSome(), 0);
    });
    _reader.then([&] { _stream.reset(); });

    const int goesOn = _stream->readSome();

    EXPECT_EQ(goesOn, 0);
    EXPECT_EQ(_reader.count(), 2U);
}

// ---- Forgetting a read

TEST_F(StreamTest, forgetsTheArmedReadAndKeepsTheWatch)
{
    arm();
    GSource* const watch = fields().watch();

    _stream->clearHandler();

    EXPECT_EQ(fields().handler(), nullptr);
    EXPECT_EQ(fields().buffer(), nullptr);
    EXPECT_EQ(fields().size(), 0U);
    EXPECT_EQ(fields().watch(), watch);
    EXPECT_FALSE(g_source_is_destroyed(watch));
}

// ---- The end

TEST_F(StreamTest, closesOnceAndLeavesTheDescriptorOpen)
{
    EXPECT_EQ(_stream->close(), 0);
    EXPECT_TRUE(fields().closed());
    EXPECT_EQ(fields().channel(), nullptr);
    EXPECT_EQ(_channel->ref_count, 1);

    EXPECT_EQ(_stream->close(), -1);
    EXPECT_TRUE(fields().closed());
    EXPECT_TRUE(isOpen(_end.get()));
}

TEST_F(StreamTest, leavesNoMemoryBehind)
{
    EXPECT_EQ(livememory::leftBehindBy([this] {
                  peerSends("x");
                  Stream stream;
                  giveChannelOver(_end.get(), &stream);
                  stream.asyncReadData(_buffer, sizeof _buffer, &_reader);
                  stream.readSome();
              }),
              0);
}

TEST_F(StreamTest, closesWithoutAChannelToo)
{
    Stream stream;

    EXPECT_EQ(stream.close(), -1);

    EXPECT_TRUE(StreamFields(&stream).closed());
}

TEST_F(StreamTest, endsTheArmedReadWhenItCloses)
{
    arm();
    GSource* const watch = g_source_ref(fields().watch());
    interpose::CallLog calls;
    {
        const Interposed destroyed(interpose::g_source_destroy, calls.noting("destroy watch"));
        const Interposed watchDropped(interpose::g_source_unref, calls.noting("unref watch"));
        const Interposed channelDropped(interpose::g_io_channel_unref, calls.noting("unref channel"));
        EXPECT_EQ(_stream->close(), 0);
    }

    EXPECT_THAT(calls.calls(), ElementsAre("destroy watch", "unref watch", "unref channel"));
    EXPECT_EQ(fields().watch(), nullptr);
    EXPECT_TRUE(g_source_is_destroyed(watch));
    EXPECT_EQ(watch->ref_count, 1U);
    g_source_unref(watch);
    peerSends("abc");
    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_THAT(_reader.reads(), IsEmpty());
}

TEST_F(StreamTest, readsFromANewChannelAfterItWasClosedWhileAReadWasArmed)
{
    arm();
    _stream->close();
    peerSends("abc");

    giveChannelOver(_end.get(), _stream.get());
    arm();

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
}

TEST_F(StreamTest, dropsContextThenWatchThenChannelWhenItIsDestroyed)
{
    arm();
    GSource* const watch = g_source_ref(fields().watch());
    interpose::CallLog calls;
    {
        const Interposed context(interpose::g_main_context_unref, calls.noting("unref context"));
        const Interposed destroyed(interpose::g_source_destroy, calls.noting("destroy watch"));
        const Interposed watchDropped(interpose::g_source_unref, calls.noting("unref watch"));
        const Interposed channelDropped(interpose::g_io_channel_unref, calls.noting("unref channel"));
        _stream.reset();
    }

    EXPECT_THAT(calls.calls(), ElementsAre("unref context", "destroy watch", "unref watch", "unref channel"));
    EXPECT_TRUE(g_source_is_destroyed(watch));
    EXPECT_EQ(watch->ref_count, 1U);
    g_source_unref(watch);  // which had a reference to the channel too
    EXPECT_EQ(_channel->ref_count, 1);
    peerSends("abc");
    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_THAT(_reader.reads(), IsEmpty());
}

TEST_F(StreamTest, dropsNothingThatItNeverHad)
{
    interpose::CallLog calls;
    auto stream = std::make_unique<Stream>();
    const Interposed context(interpose::g_main_context_unref, calls.noting("unref context"));
    const Interposed destroyed(interpose::g_source_destroy, calls.noting("destroy watch"));
    const Interposed channelDropped(interpose::g_io_channel_unref, calls.noting("unref channel"));

    stream.reset();

    EXPECT_THAT(calls.calls(), IsEmpty());
}

}  // namespace
