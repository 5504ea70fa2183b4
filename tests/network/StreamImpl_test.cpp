// The watch callback of streams, condition by condition, and the reference count that handlers rely on.
#include <ostream>
#include <string>
#include <vector>

#include "FatalTest.h"
#include "InterposeGlib.h"
#include "StreamTest.h"

using Murn::Stream;
using Murn::StreamImpl;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

constexpr unsigned allWatched = G_IO_IN | G_IO_ERR | G_IO_HUP | G_IO_NVAL;

// The conditions that are not data, in all combinations, and none of them in front.
const std::vector<unsigned> nothingAndTroubles = {
    0,
    G_IO_HUP,
    G_IO_ERR,
    G_IO_NVAL,
    G_IO_HUP | G_IO_ERR,
    G_IO_HUP | G_IO_NVAL,
    G_IO_ERR | G_IO_NVAL,
    G_IO_HUP | G_IO_ERR | G_IO_NVAL,
};
const std::vector<unsigned> troubles(nothingAndTroubles.begin() + 1, nothingAndTroubles.end());

// What the handler and the log are told of a trouble.
struct Report {
    Read read;
    std::string line;
};

Report reportOf(unsigned trouble)
{
    if ((trouble & G_IO_HUP) != 0)
        return {without(0), "Stream 4: Error !"};
    if ((trouble & G_IO_ERR) != 0)
        return {without(-1), "Stream 4: Unknown error !"};
    return {without(-3), "Stream 4: Invalid !"};
}

// What the log is told of a condition that nobody waits for.
std::vector<std::string> unhandledLines(unsigned condition)
{
    std::vector<std::string> lines = {"Stream 4: No handler for data!!!"};
    if ((condition & G_IO_IN) != 0)
        lines.emplace_back(" 4: ->   data available");
    if ((condition & G_IO_HUP) != 0)
        lines.emplace_back(" 4: ->   closed");
    if ((condition & G_IO_NVAL) != 0)
        lines.emplace_back(" 4: ->   invalid");
    if ((condition & G_IO_ERR) != 0)
        lines.emplace_back(" 4: ->   error");
    return lines;
}

std::string conditionName(unsigned condition)
{
    std::string name = "condition";
    for (const auto& [bit, text] : {std::pair<unsigned, const char*>{G_IO_IN, " IN"},
                                    {G_IO_PRI, " PRI"},
                                    {G_IO_OUT, " OUT"},
                                    {G_IO_ERR, " ERR"},
                                    {G_IO_HUP, " HUP"},
                                    {G_IO_NVAL, " NVAL"}}) {
        if ((condition & bit) != 0)
            name += text;
    }
    return name;
}

// The callback is called directly, with conditions made up for the purpose; real ones follow at the end.
class StreamImplTest : public StreamTest {
protected:
    gboolean callBack(unsigned condition)
    {
        return StreamImpl::Stream_SourceCallback(_channel, static_cast<GIOCondition>(condition),
                                                 StreamImpl::Of(_stream.get()));
    }

    // As if the channel had nothing to read, or failed.
    static auto statusIs(GIOStatus status)
    {
        return [status](auto*, GIOChannel*, gchar*, gsize, gsize*, GError**) { return status; };
    }

    // Looks after a stream that its handler deleted that nobody else holds the channel.
    void expectPrivateObjectIsGone() { EXPECT_EQ(_channel->ref_count, 1); }
};

// ---- References

TEST_F(StreamImplTest, isDestroyedWithItsLastReference)
{
    auto* const imp = new StreamImpl(nullptr);
    imp->ref();

    EXPECT_FALSE(imp->unref());
    EXPECT_TRUE(imp->unref());
}

TEST_F(StreamImplTest, isNobodysAnyMoreWhenItGoes)
{
    const StreamFields stream = fields();
    StreamImpl* imp = stream.imp();
    const Interposed noted(interpose::g_main_context_unref, [&](auto* real, GMainContext* context) {
        imp = stream.imp();
        real(context);
    });

    _stream.reset();

    EXPECT_EQ(imp, nullptr);
}

TEST_F(StreamImplTest, isDestroyedThroughItsVirtualDestructor)
{
    class Derived : public StreamImpl {
    public:
        explicit Derived(bool* destroyed) : StreamImpl(nullptr), _destroyed(destroyed) {}
        ~Derived() override { *_destroyed = true; }

    private:
        bool* _destroyed;
    };
    bool destroyed = false;

    EXPECT_TRUE((new Derived(&destroyed))->unref());

    EXPECT_TRUE(destroyed);
}

TEST_F(StreamImplTest, takesTheReleaseOfAReferenceThatNobodyHoldsForAFatalError)
{
    const gint32 none = 0;
    EXPECT_FATAL(
        {
            StreamImpl imp(nullptr);
            std::memcpy(reinterpret_cast<char*>(&imp) + 8, &none, sizeof none);
            imp.unref();
        },
        "_refCount>=1", "inc/Stream_glib.h");
}

TEST_F(StreamImplTest, isHeldWhileTheHandlerRuns)
{
    for (const unsigned condition : {G_IO_IN, G_IO_HUP, G_IO_ERR, G_IO_NVAL}) {
        SCOPED_TRACE(conditionName(condition));
        peerSends("x");
        startOver();
        arm();
        int references = 0;
        _reader.then([&] { references = fields().refCount(); });

        EXPECT_TRUE(callBack(condition));

        EXPECT_EQ(references, 2);
        EXPECT_EQ(fields().refCount(), 1);
    }
    EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error !", "Stream 4: Unknown error !", "Stream 4: Invalid !"));
}

// ---- Conditions that are nobody's business

TEST_F(StreamImplTest, goesOnWatchingAtConditionsThatItDoesNotWatch)
{
    arm();
    for (const unsigned condition : {0U, 0U | G_IO_PRI, 0U | G_IO_OUT, 0U | G_IO_PRI | G_IO_OUT}) {
        SCOPED_TRACE(conditionName(condition));
        EXPECT_TRUE(callBack(condition));
    }
    EXPECT_EQ(fields().handler(), &_reader);

    _stream->clearHandler();
    EXPECT_TRUE(callBack(0));
    EXPECT_TRUE(callBack(G_IO_PRI | G_IO_OUT));

    EXPECT_THAT(_reader.reads(), IsEmpty());
    EXPECT_THAT(newLines(), IsEmpty());
}

// ---- Conditions without a handler

TEST_F(StreamImplTest, warnsOfEachConditionThatNobodyWaitsForAndStopsWatching)
{
    for (const unsigned data : {0U, 0U | G_IO_IN}) {
        for (const unsigned trouble : nothingAndTroubles) {
            if ((data | trouble) == 0)
                continue;
            SCOPED_TRACE(conditionName(data | trouble));

            EXPECT_FALSE(callBack(data | trouble));

            EXPECT_THAT(newLines(), ElementsAreArray(unhandledLines(data | trouble)));
        }
    }
}

TEST_F(StreamImplTest, warnsOfNothingThatItDoesNotWatch)
{
    EXPECT_FALSE(callBack(G_IO_IN | G_IO_PRI | G_IO_OUT));

    EXPECT_THAT(newLines(), ElementsAreArray(unhandledLines(G_IO_IN)));
}

TEST_F(StreamImplTest, readsNothingWithoutAHandler)
{
    interpose::CallLog calls;
    const Interposed reads(interpose::g_io_channel_read_chars, calls.noting("read"));
    peerSends("abc");

    EXPECT_FALSE(callBack(allWatched));

    EXPECT_THAT(calls.calls(), IsEmpty());
    EXPECT_THAT(newLines(), ElementsAreArray(unhandledLines(allWatched)));
}

class StreamWithDeadWatchTest : public StreamImplTest {
protected:
    // The watch ends because data comes while nobody waits for it.
    void SetUp() override
    {
        arm();
        _stream->clearHandler();
        peerSends("abc");
        ASSERT_EQ(pumpWhatIsReady(), 1);
        ASSERT_THAT(newLines(), ElementsAreArray(unhandledLines(G_IO_IN)));
    }

    void expectReadingWorks()
    {
        arm();
        EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
        EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
    }
};

TEST_F(StreamWithDeadWatchTest, keepsThePointerToItAndMakesNoOther)
{
    GSource* const watch = fields().watch();
    ASSERT_NE(watch, nullptr);
    EXPECT_TRUE(g_source_is_destroyed(watch));

    arm();

    EXPECT_EQ(fields().watch(), watch);
    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_THAT(_reader.reads(), IsEmpty());
}

TEST_F(StreamWithDeadWatchTest, isRevivedByAStop)
{
    _stream->asyncReadData(nullptr, 0, &_reader);
    EXPECT_THAT(newLines(), ElementsAre("PAL/IStream 4: NULL callback => stop reading from source"));
    EXPECT_EQ(fields().watch(), nullptr);

    expectReadingWorks();
}

TEST_F(StreamWithDeadWatchTest, isRevivedByAMove)
{
    _stream->moveToThread(mainThread());
    EXPECT_EQ(fields().watch(), nullptr);

    expectReadingWorks();
}

TEST_F(StreamWithDeadWatchTest, isRevivedByACloseAndANewChannel)
{
    _stream->close();
    EXPECT_EQ(fields().watch(), nullptr);
    giveChannelOver(_end.get(), _stream.get());

    expectReadingWorks();
}

// ---- Data

TEST_F(StreamImplTest, readsDataAndKeepsTheWatch)
{
    arm();
    peerSends("abc");

    EXPECT_TRUE(callBack(G_IO_IN));

    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
    EXPECT_EQ(fields().handler(), nullptr);
    EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(StreamImplTest, reportsTroubleThatComesWithDataOnlyToAReadThatIsArmedAgain)
{
    for (const unsigned trouble : troubles) {
        SCOPED_TRACE(conditionName(trouble));
        peerSends("abc");
        startOver();
        arm();
        const std::size_t before = _reader.count();

        EXPECT_TRUE(callBack(G_IO_IN | trouble));

        EXPECT_EQ(_reader.count(), before + 1);
        EXPECT_EQ(_reader.last(), got(3));
        EXPECT_THAT(newLines(), IsEmpty());
    }
}

TEST_F(StreamImplTest, keepsWatchingForAReadThatIsArmedAgain)
{
    arm();
    peerSends("abc");
    _reader.then([&] { arm(); });

    EXPECT_TRUE(callBack(G_IO_IN | G_IO_OUT));

    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
    EXPECT_EQ(fields().handler(), &_reader);
}

TEST_F(StreamImplTest, reportsTroubleThatComesWithDataInTheSameTurnWhenAReadIsArmedAgain)
{
    for (const unsigned trouble : troubles) {
        SCOPED_TRACE(conditionName(trouble));
        Reader reader;
        startOver();
        armFor(reader);
        reader.then([&] { armFor(reader); });
        peerSends("abc");

        EXPECT_TRUE(callBack(G_IO_IN | trouble));

        EXPECT_THAT(reader.reads(), ElementsAre(got(3), reportOf(trouble).read));
        EXPECT_THAT(newLines(), ElementsAre(reportOf(trouble).line));
        EXPECT_EQ(fields().handler(), nullptr);
    }
}

TEST_F(StreamImplTest, reportsNothingMoreThanTheEndOfTheStream)
{
    for (const unsigned trouble : nothingAndTroubles) {
        SCOPED_TRACE(conditionName(trouble));
        const Interposed reads(interpose::g_io_channel_read_chars, statusIs(G_IO_STATUS_EOF));
        Reader reader;
        startOver();
        armFor(reader);
        reader.then([&] { arm(); });

        EXPECT_TRUE(callBack(G_IO_IN | trouble));

        EXPECT_THAT(reader.reads(), ElementsAre(without(0)));
        EXPECT_EQ(fields().handler(), &_reader);
    }
    EXPECT_THAT(newLines(), IsEmpty());
    EXPECT_THAT(_reader.reads(), IsEmpty());
}

TEST_F(StreamImplTest, reportsNothingMoreThanAReadError)
{
    for (const unsigned trouble : nothingAndTroubles) {
        SCOPED_TRACE(conditionName(trouble));
        const Interposed reads(interpose::g_io_channel_read_chars, statusIs(G_IO_STATUS_ERROR));
        Reader reader;
        startOver();
        armFor(reader);
        reader.then([&] { arm(); });

        EXPECT_TRUE(callBack(G_IO_IN | trouble));

        EXPECT_THAT(reader.reads(), ElementsAre(without(-1)));
        EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error from outer space"));
    }
    EXPECT_THAT(_reader.reads(), IsEmpty());
}

TEST_F(StreamImplTest, keepsTheWatchWhenThereWasNoDataAfterAll)
{
    const Interposed reads(interpose::g_io_channel_read_chars, statusIs(G_IO_STATUS_AGAIN));
    arm();

    EXPECT_TRUE(callBack(G_IO_IN));

    EXPECT_THAT(newLines(), ElementsAre("Stream 2: EAGAIN: No data available :( !"));
    EXPECT_THAT(_reader.reads(), IsEmpty());
    EXPECT_EQ(fields().handler(), nullptr);
    EXPECT_EQ(fields().refCount(), 1);
}

TEST_F(StreamImplTest, findsNoHandlerForTroubleThatComesWithDataThatWasNotThere)
{
    const Interposed reads(interpose::g_io_channel_read_chars, statusIs(G_IO_STATUS_AGAIN));
    for (const unsigned trouble : troubles) {
        SCOPED_TRACE(conditionName(trouble));
        startOver();
        arm();

        EXPECT_FALSE(callBack(G_IO_IN | trouble));

        std::vector<std::string> lines = unhandledLines(trouble);
        lines.insert(lines.begin(), "Stream 2: EAGAIN: No data available :( !");
        EXPECT_THAT(newLines(), ElementsAreArray(lines));
        EXPECT_NE(fields().watch(), nullptr);
    }
    EXPECT_THAT(_reader.reads(), IsEmpty());
}

// ---- Trouble

TEST_F(StreamImplTest, reportsTheFirstTroubleInItsOrderAndKeepsTheWatch)
{
    for (const unsigned trouble : troubles) {
        SCOPED_TRACE(conditionName(trouble));
        Reader reader;
        startOver();
        armFor(reader);
        reader.then([&] {
            EXPECT_EQ(fields().handler(), nullptr);
            EXPECT_EQ(fields().buffer(), nullptr);
            EXPECT_EQ(fields().size(), 0U);
            // The warning comes first.
            EXPECT_THAT(newLines(), ElementsAre(reportOf(trouble).line));
        });

        EXPECT_TRUE(callBack(trouble));

        EXPECT_THAT(reader.reads(), ElementsAre(reportOf(trouble).read));
        EXPECT_EQ(fields().refCount(), 1);
    }
    EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(StreamImplTest, letsTheHandlerArmAnotherReadAfterTrouble)
{
    for (const unsigned trouble : troubles) {
        SCOPED_TRACE(conditionName(trouble));
        startOver();
        arm();
        _reader.then([&] { arm(); });

        EXPECT_TRUE(callBack(trouble));

        EXPECT_EQ(fields().handler(), &_reader);
        EXPECT_THAT(newLines(), ElementsAre(reportOf(trouble).line));
    }
}

// ---- Handlers that do something to the stream

struct Path {
    const char* name;
    unsigned condition;
    GIOStatus status;  // of the read, where there is one

    friend std::ostream& operator<<(std::ostream& os, const Path& path) { return os << path.name; }
};

class StreamHandlerTest : public StreamImplTest, public ::testing::WithParamInterface<Path> {
protected:
    // Arms a read that calls the handler on the way of the parameter.
    StreamHandlerTest()
        : _reads(interpose::g_io_channel_read_chars, [](auto*, GIOChannel*, gchar*, gsize, gsize* count, GError**) {
              *count = 1;
              return GetParam().status;
          })
    {
        arm();
    }

    void TearDown() override
    {
        EXPECT_EQ(_reader.count(), 1U);
        newLines();
        StreamImplTest::TearDown();
    }

private:
    Interposed<GIOStatus(GIOChannel*, gchar*, gsize, gsize*, GError**)> _reads;
};

TEST_P(StreamHandlerTest, deletesTheStream)
{
    _reader.then([&] { _stream.reset(); });

    EXPECT_FALSE(callBack(GetParam().condition));

    expectPrivateObjectIsGone();
}

TEST_P(StreamHandlerTest, deletesTheStreamThatItArmedAgain)
{
    _reader.then([&] {
        arm();
        _stream.reset();
    });

    EXPECT_FALSE(callBack(GetParam().condition));

    expectPrivateObjectIsGone();
}

TEST_P(StreamHandlerTest, keepsThePrivateObjectButNoWatchUntilItReturns)
{
    GSource* const watch = g_source_ref(fields().watch());
    StreamImpl* const imp = fields().imp();
    _reader.then([&] {
        _stream.reset();
        EXPECT_EQ(fieldAt<Stream*>(imp, 40), nullptr) << "the stream is gone";
        EXPECT_TRUE(g_source_is_destroyed(watch));
        g_source_unref(watch);
        EXPECT_EQ(_channel->ref_count, 2);  // the test's and the private object's
    });

    EXPECT_FALSE(callBack(GetParam().condition));

    expectPrivateObjectIsGone();
}

TEST_P(StreamHandlerTest, deletesTheStreamAndPumpsTheLoop)
{
    peerSends("abc");
    _reader.then([&] {
        _stream.reset();
        pumpWhatIsReady();
    });

    EXPECT_FALSE(callBack(GetParam().condition));

    expectPrivateObjectIsGone();
}

TEST_P(StreamHandlerTest, closesTheStream)
{
    _reader.then([&] { EXPECT_EQ(_stream->close(), 0); });

    EXPECT_TRUE(callBack(GetParam().condition));

    EXPECT_EQ(_channel->ref_count, 1);
    EXPECT_EQ(fields().watch(), nullptr);
    EXPECT_EQ(fields().refCount(), 1);
}

TEST_P(StreamHandlerTest, closesTheStreamThatItArmedAgain)
{
    _reader.then([&] {
        arm();
        EXPECT_EQ(_stream->close(), 0);
    });

    EXPECT_TRUE(callBack(GetParam().condition));

    EXPECT_EQ(fields().handler(), nullptr);
    EXPECT_EQ(_channel->ref_count, 1);
}

TEST_P(StreamHandlerTest, stopsReading)
{
    _reader.then([&] { _stream->asyncReadData(nullptr, 0, &_reader); });

    EXPECT_TRUE(callBack(GetParam().condition));

    EXPECT_EQ(newLines().back(), "PAL/IStream 4: NULL callback => stop reading from source");
    EXPECT_EQ(fields().handler(), nullptr);
    EXPECT_EQ(fields().watch(), nullptr);
}

TEST_P(StreamHandlerTest, movesTheStreamToTheSameThreadAndArmsIt)
{
    GSource* const watch = g_source_ref(fields().watch());
    _reader.then([&] {
        _stream->moveToThread(mainThread());
        arm();
    });

    EXPECT_TRUE(callBack(GetParam().condition));

    EXPECT_EQ(fields().handler(), &_reader);
    EXPECT_TRUE(g_source_is_destroyed(watch));
    EXPECT_FALSE(g_source_is_destroyed(fields().watch()));
    g_source_unref(watch);
}

TEST_P(StreamHandlerTest, movesTheStreamToAnotherThreadThatArmsIt)
{
    Worker worker;
    Reader other;
    _reader.then([&] {
        _stream->moveToThread(worker.thread());
        worker.run([&] { _stream->asyncReadData(_buffer, sizeof _buffer, &other); });
    });

    EXPECT_TRUE(callBack(GetParam().condition));

    EXPECT_EQ(fields().context(), contextOf(worker.thread()));
    EXPECT_EQ(fields().handler(), &other);
    worker.run([&] { _stream.reset(); });
    EXPECT_THAT(other.reads(), IsEmpty());
}

TEST_P(StreamHandlerTest, movesTheStreamToAnotherThreadThatArmsAndDeletesIt)
{
    Worker worker;
    Reader other;
    peerSends("abc");
    _reader.then([&] {
        _stream->moveToThread(worker.thread());
        worker.run([&] {
            armFor(other);
            GSource* const watch = g_source_ref(fields().watch());
            _stream.reset();
            EXPECT_TRUE(g_source_is_destroyed(watch));
            g_source_unref(watch);
        });
    });

    EXPECT_FALSE(callBack(GetParam().condition));

    EXPECT_THAT(other.reads(), IsEmpty());
    expectPrivateObjectIsGone();
}

TEST_P(StreamHandlerTest, movesTheStreamToAnotherThreadThatDeletesIt)
{
    Worker worker;
    _reader.then([&] {
        _stream->moveToThread(worker.thread());
        worker.run([&] { _stream.reset(); });
    });

    EXPECT_FALSE(callBack(GetParam().condition));

    expectPrivateObjectIsGone();
}

INSTANTIATE_TEST_SUITE_P(StreamImpl, StreamHandlerTest,
                         ::testing::Values(Path{"data", G_IO_IN, G_IO_STATUS_NORMAL},
                                           Path{"dataAndHangUp", G_IO_IN | G_IO_HUP, G_IO_STATUS_NORMAL},
                                           Path{"endOfStream", G_IO_IN, G_IO_STATUS_EOF},
                                           Path{"readError", G_IO_IN, G_IO_STATUS_ERROR},
                                           Path{"hangUp", G_IO_HUP, G_IO_STATUS_NORMAL},
                                           Path{"error", G_IO_ERR, G_IO_STATUS_NORMAL},
                                           Path{"invalid", G_IO_NVAL, G_IO_STATUS_NORMAL}),
                         [](const auto& test) { return test.param.name; });

// ---- Real conditions, through the loop

TEST_F(StreamImplTest, isNotCalledAgainByALoopThatItsHandlerPumps)
{
    arm();
    peerSends("abc");
    _reader.then([&] {
        arm();
        peerSends("de");
        EXPECT_EQ(pumpWhatIsReady(), 0);
        EXPECT_EQ(_reader.count(), 1U);
    });

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 2; }));

    EXPECT_THAT(_reader.reads(), ElementsAre(got(3), got(2)));
}

TEST_F(StreamImplTest, servesOtherStreamsInALoopThatAHandlerPumps)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor otherEnd(ends[0]);
    Peer otherPeer(ends[1]);
    Stream other;
    giveChannelOver(otherEnd.get(), &other);
    Reader otherReader;
    char otherBuffer[8];
    other.asyncReadData(otherBuffer, sizeof otherBuffer, &otherReader);
    arm();
    _reader.then([&] {
        ASSERT_TRUE(otherPeer.send("xy"));
        EXPECT_TRUE(pumpUntil([&] { return otherReader.count() == 1; }));
    });
    peerSends("abc");

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));

    EXPECT_THAT(otherReader.reads(), ElementsAre(Read{otherBuffer, 2}));
}

TEST_F(StreamImplTest, survivesADeletionByAnotherStreamsHandlerInALoopThatItsOwnHandlerPumps)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor otherEnd(ends[0]);
    Peer otherPeer(ends[1]);
    Stream other;
    giveChannelOver(otherEnd.get(), &other);
    Reader otherReader;
    char otherBuffer[8];
    other.asyncReadData(otherBuffer, sizeof otherBuffer, &otherReader);
    otherReader.then([&] { _stream.reset(); });
    arm();
    _reader.then([&] {
        arm();
        ASSERT_TRUE(otherPeer.send("xy"));
        EXPECT_TRUE(pumpUntil([&] { return otherReader.count() == 1; }));
        EXPECT_EQ(_stream, nullptr);
    });
    peerSends("abc");

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));

    EXPECT_EQ(pumpWhatIsReady(), 0);
    expectPrivateObjectIsGone();
}

TEST_F(StreamImplTest, reportsAPeerThatLeavesAsTheEndOfTheStream)
{
    arm();

    _peer.leave();

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(without(0)));
}

TEST_F(StreamImplTest, reportsDataAndTheEndInOneTurnToAReaderThatGoesOn)
{
    arm();
    _reader.then([&] { arm(); });
    peerSends("abc");
    _peer.leave();  // both are there: a socket pair says IN and HUP

    EXPECT_TRUE(mainThread()->processEvents(true));

    EXPECT_THAT(_reader.reads(), ElementsAre(got(3), without(0)));
    EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error !"));
}

TEST_F(StreamImplTest, watchesNoMoreAfterTheEndThatNobodyArmedAReadAt)
{
    arm();
    _peer.leave();
    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));

    EXPECT_EQ(pumpWhatIsReady(), 1);

    EXPECT_THAT(newLines(), ElementsAreArray(unhandledLines(G_IO_IN | G_IO_HUP)));
    EXPECT_EQ(_reader.count(), 1U);
}

class StreamOverPipeTest : public StreamImplTest {
protected:
    // Puts a pipe's end under a new stream of the test and arms it.
    void watch(int end)
    {
        _stream = std::make_unique<Stream>();
        giveChannelOver(end, _stream.get());
        arm();
    }

    void SetUp() override
    {
        int ends[2] = {-1, -1};
        ASSERT_EQ(::pipe(ends), 0);
        _readEnd = Descriptor(ends[0]);
        _writeEnd = Descriptor(ends[1]);
    }

    Descriptor _readEnd;
    Descriptor _writeEnd;
};

TEST_F(StreamOverPipeTest, reportsAHangUp)
{
    watch(_readEnd.get());

    _writeEnd.close();  // an empty pipe without a writer says HUP alone

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(without(0)));
    EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error !"));
}

TEST_F(StreamOverPipeTest, reportsAnError)
{
    watch(_writeEnd.get());

    _readEnd.close();  // a pipe without a reader says ERR alone to its writer

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(without(-1)));
    EXPECT_THAT(newLines(), ElementsAre("Stream 4: Unknown error !"));
}

TEST_F(StreamOverPipeTest, reportsAnInvalidDescriptor)
{
    watch(_readEnd.get());

    _readEnd.close();

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(without(-3)));
    EXPECT_THAT(newLines(), ElementsAre("Stream 4: Invalid !"));
}

TEST_F(StreamOverPipeTest, reportsTroubleAgainAndAgainToAReaderThatGoesOn)
{
    watch(_readEnd.get());
    _reader.then([&] { arm(); }).then([&] { arm(); });

    _writeEnd.close();

    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 3; }));
    EXPECT_THAT(newLines(), ElementsAre("Stream 4: Error !", "Stream 4: Error !", "Stream 4: Error !"));
}

}  // namespace
