// The interface of byte streams: its slots, and what it does for streams that know no threads.
#include <kxPAL/IStream.h>
#include <kxPAL/IStreamReadHandler.h>

#include "StreamTest.h"
#include "VirtualTable.h"

using ::testing::ElementsAre;

namespace {

// A stream that knows no threads.
class PlainStream : public Murn::IStream {
public:
    explicit PlainStream(bool* destroyed = nullptr) : _destroyed(destroyed) {}
    ~PlainStream() override
    {
        if (_destroyed != nullptr)
            *_destroyed = true;
    }

    long writeData(const void*, unsigned long) override { return -1; }
    void asyncReadData(void*, unsigned long, Murn::IStreamReadHandler*) override {}
    int close() override { return -1; }

private:
    bool* _destroyed;
};

// A stream that notes how it is moved.
class MovingStream : public PlainStream {
public:
    void detachFromCurrentThread() override { _moves.push_back("detach"); }
    void attachToThread(Murn::Thread* thread) override
    {
        _moves.push_back("attach");
        _thread = thread;
    }

    std::vector<std::string> _moves;
    Murn::Thread* _thread = nullptr;
};

class IStreamTest : public RuntimeTest {
protected:
    std::vector<std::string> lines()
    {
        std::vector<std::string> result;
        for (const LogMessage& message : logged())
            result.push_back(lineOf(message));
        return result;
    }
};

const std::string detachWarning = "IStream 4: Detaching a Stream with no thread affinity implementation!";
const std::string attachWarning = "IStream 4: Attaching a Stream with no thread affinity implementation!";

TEST_F(IStreamTest, keepsItsVirtualSlotsInOrder)
{
    // Slots 0 and 1 are the two destructors.
    EXPECT_EQ(virtualSlot(&Murn::IStream::writeData), 2U);
    EXPECT_EQ(virtualSlot(&Murn::IStream::asyncReadData), 3U);
    EXPECT_EQ(virtualSlot(&Murn::IStream::close), 4U);
    EXPECT_EQ(virtualSlot(&Murn::IStream::moveToThread), 5U);
    EXPECT_EQ(virtualSlot(&Murn::IStream::detachFromCurrentThread), 6U);
    EXPECT_EQ(virtualSlot(&Murn::IStream::attachToThread), 7U);
    EXPECT_EQ(sizeof(Murn::IStream), sizeof(void*));
}

TEST_F(IStreamTest, isDestroyedThroughTheInterface)
{
    bool destroyed = false;
    std::unique_ptr<Murn::IStream> stream = std::make_unique<PlainStream>(&destroyed);

    stream.reset();

    EXPECT_TRUE(destroyed);
}

TEST_F(IStreamTest, movesByDetachingAndThenAttachingInTheDerivedClass)
{
    MovingStream stream;
    Murn::Thread target;

    static_cast<Murn::IStream&>(stream).moveToThread(&target);

    EXPECT_THAT(stream._moves, ElementsAre("detach", "attach"));
    EXPECT_EQ(stream._thread, &target);
}

TEST_F(IStreamTest, warnsWhenAStreamWithoutThreadsIsDetached)
{
    PlainStream().detachFromCurrentThread();

    EXPECT_THAT(lines(), ElementsAre(detachWarning));
}

TEST_F(IStreamTest, warnsWhenAStreamWithoutThreadsIsAttached)
{
    PlainStream().attachToThread(mainThread());

    EXPECT_THAT(lines(), ElementsAre(attachWarning));
}

TEST_F(IStreamTest, warnsTwiceWhenAStreamWithoutThreadsIsMoved)
{
    PlainStream().moveToThread(mainThread());

    EXPECT_THAT(lines(), ElementsAre(detachWarning, attachWarning));
}

}  // namespace
