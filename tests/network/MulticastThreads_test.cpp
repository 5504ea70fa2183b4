// The multicast socket among threads, with real sockets: its one interface is made up, and stands for the loopback
// device, so that these tests run on every machine that joins groups there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/MulticastUdpSocket.h>
#include <kxPAL/NetworkInterface.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Capture.h"
#include "InterposeSockets.h"
#include "LogCapture.h"
#include "MadeUpInterfaces.h"
#include "Stress.h"
#include "ThreadGroup.h"
#include "ThreadState.h"
#include "Wait.h"

using Murn::HostAddress;
using Murn::MulticastUdpSocket;
using Murn::UdpSocket;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// A group of this process alone: a socket also hears the groups of its port that other programs of the machine are in.
std::string ownGroup(unsigned int block)
{
    const auto process = static_cast<unsigned int>(::getpid());
    return "239." + std::to_string(block + (process >> 16 & 63)) + "." + std::to_string(process >> 8 & 255) + "." +
           std::to_string(process & 255);
}

const std::string textA = ownGroup(64);
const std::string textB = ownGroup(128);

// A port that nobody has now.
unsigned short freePort()
{
    UdpSocket socket(Murn::Socket::IPv4);
    EXPECT_TRUE(socket.bind(HostAddress::AnyIPv4, 0));
    return socket.localPort();
}

class MulticastThreads : public ::testing::Test {
protected:
    void SetUp() override
    {
        static const bool listed = listLoopback();
        static_cast<void>(listed);
        if (!canJoin())
            GTEST_SKIP() << "this machine joins no group on its loopback interface";
        _socket = std::make_unique<MulticastUdpSocket>();
        ASSERT_EQ(registerOn(textA), 0);
    }

    int registerOn(const std::string& group)
    {
        HostAddress address(group);
        return _socket->registerOnMulticastGroup({&address}, _port, false);
    }

    int send(const std::string& text) { return _socket->sendto(text.data(), text.size(), _port); }

    // Waits for a datagram.
    std::string receive()
    {
        char buffer[64];
        const long size = _socket->recvfrom(buffer, sizeof buffer, nullptr, nullptr);
        return size < 0 ? "(" + std::to_string(size) + ")" : std::string(buffer, static_cast<std::size_t>(size));
    }

    // Closes the socket while another thread is in this function of the system's. Tells what was done first.
    template <typename Signature>
    std::vector<std::string> closedDuring(interpose::Slot<Signature>& function, const std::function<void()>& call)
    {
        const StdoutCapture ignored;
        interpose::CallLog calls;
        const long closer = threadNumber();
        std::atomic<bool> called{false};
        std::atomic<bool> closing{false};
        Interposed calling(function, [&](auto real, auto... arguments) {
            called = true;
            EXPECT_TRUE(waitUntil([&] { return closing && isAsleep(closer); }));
            calls.note("done");
            return real(arguments...);
        });
        Interposed closingIt(interpose::close, calls.noting("closed"));

        std::thread caller(call);
        EXPECT_TRUE(waitUntil([&] { return called.load(); }));
        closing = true;
        _socket->close();
        caller.join();
        return calls.calls();
    }

    MulticastUdpSocket& socket() { return *_socket; }
    unsigned short port() const { return _port; }

private:
    static bool listLoopback()
    {
        MadeUpInterfaces machine;
        machine.add("eth0", "127.0.0.1", Bytes{2, 0, 0, 0, 0, 1});
        const Murn::NetworkInterface enumeration;
        return true;
    }

    static bool canJoin()
    {
        UdpSocket socket(Murn::Socket::IPv4);
        const HostAddress loopback(HostAddress::LoopbackIPv4);
        const HostAddress group(textA);
        if (!socket.bind(HostAddress::AnyIPv4, 0) || !socket.addMulticastMembership(group, loopback))
            return false;
        socket.setMulticastOutputInterface(loopback);
        return socket.sendto("x", 1, group, 9) == 1;
    }

    const unsigned short _port = freePort();
    std::unique_ptr<MulticastUdpSocket> _socket;
};

// A thread in recvfrom().
class Receiver {
public:
    explicit Receiver(MulticastUdpSocket& socket) : _thread([this, &socket] { receive(socket); }) {}
    ~Receiver() { join(); }

    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    // Waits until it waits for data.
    bool isWaiting()
    {
        return waitUntil([this] { return _number != 0 && waitsForDescriptors(_number); });
    }
    // What recvfrom() returned.
    long result()
    {
        join();
        return _result;
    }

private:
    void receive(MulticastUdpSocket& socket)
    {
        Interposed entered(interpose::select, [this](auto real, auto... arguments) {
            _number = threadNumber();
            return real(arguments...);
        });
        char buffer[64];
        _result = socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr);
    }

    void join()
    {
        if (_thread.joinable())
            _thread.join();
    }

    std::atomic<long> _number{0};
    long _result = 1000;
    std::thread _thread;
};

}  // namespace

TEST_F(MulticastThreads, getsWhatItSendsWithItsSender)
{
    EXPECT_EQ(send("hello"), 0);
    char buffer[16] = {};
    HostAddress from;
    unsigned short fromPort = 0;
    EXPECT_EQ(socket().recvfrom(buffer, sizeof buffer, &from, &fromPort), 5);
    EXPECT_STREQ(buffer, "hello");
    EXPECT_EQ(from.toString(), "127.0.0.1");
    EXPECT_EQ(fromPort, port());

    EXPECT_EQ(send(""), 0);
    EXPECT_EQ(socket().recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0);
    EXPECT_EQ(send("0123456789"), 0);
    EXPECT_EQ(socket().recvfrom(buffer, 4, nullptr, nullptr), 4) << "what does not fit is lost";
    EXPECT_EQ(send("next"), 0);
    EXPECT_EQ(receive(), "next");
}

TEST_F(MulticastThreads, sharesItsPort)
{
    MulticastUdpSocket other;
    HostAddress group(textA);
    EXPECT_EQ(other.registerOnMulticastGroup({&group}, port(), false), 0);

    EXPECT_EQ(send("to both"), 0);
    char buffer[16];
    EXPECT_EQ(receive(), "to both");
    EXPECT_EQ(other.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 7);
}

TEST_F(MulticastThreads, hearsNoMoreOfAGroupThatWasReplaced)
{
    EXPECT_EQ(registerOn(textB), 0);

    UdpSocket sender(Murn::Socket::IPv4);
    sender.setMulticastOutputInterface(HostAddress(HostAddress::LoopbackIPv4));
    EXPECT_EQ(sender.sendto("old", 3, HostAddress(textA), port()), 3);
    EXPECT_EQ(sender.sendto("new", 3, HostAddress(textB), port()), 3);
    EXPECT_EQ(receive(), "new");
    EXPECT_EQ(send("also new"), 0);
    EXPECT_EQ(receive(), "also new");
}

TEST_F(MulticastThreads, keepsWhatAFailedRegistrationJoined)
{
    const LogCapture log;
    HostAddress other(textB);
    HostAddress noGroup(std::string("192.0.2.1"));
    EXPECT_EQ(socket().registerOnMulticastGroup({&other, &noGroup}, port(), false), -1);
    EXPECT_EQ(send("x"), 3);

    EXPECT_EQ(registerOn(textB), -1) << "it is joined already, and so cannot be joined";
    EXPECT_EQ(registerOn(textA), 0) << "another one can";
    EXPECT_THAT(log.texts(), ElementsAre("addMulticastMembership failed", "addMulticastMembership failed"));
}

TEST_F(MulticastThreads, refusesAGroupThatStandsInTheListTwice)
{
    const LogCapture log;
    HostAddress group(textB);
    EXPECT_EQ(socket().registerOnMulticastGroup({&group, &group}, port(), false), -1);
    EXPECT_THAT(log.texts(), ElementsAre("addMulticastMembership failed"));
}

TEST_F(MulticastThreads, isWokenWhileItWaits)
{
    std::string printed = printedBy([this] {
        Receiver receiver(socket());
        EXPECT_TRUE(receiver.isWaiting());
        EXPECT_TRUE(socket().wakeUp());
        EXPECT_EQ(receiver.result(), -1);
    });
    EXPECT_EQ(printed, "Wakeup\nAbort\n");

    // From now on it does not wait any more, and takes no data either.
    EXPECT_EQ(send("hello"), 0);
    printed = printedBy([this] {
        EXPECT_EQ(receive(), "(-1)");
        EXPECT_EQ(receive(), "(-1)");
    });
    EXPECT_EQ(printed, "Abort\nAbort\n");

    socket().implClose();
    socket().implInit();
    EXPECT_EQ(receive(), "hello") << "with a new pipe it does";
}

TEST_F(MulticastThreads, isWokenByACloseWhileItWaits)
{
    const LogCapture log;
    const std::string printed = printedBy([this] {
        Receiver receiver(socket());
        EXPECT_TRUE(receiver.isWaiting());
        EXPECT_TRUE(socket().close());
        EXPECT_EQ(receiver.result(), -1);
        EXPECT_EQ(receive(), "");
    });
    EXPECT_EQ(printed, "Wakeup\nAbort\n");
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(MulticastThreads, endsAReceiveByACloseWithoutAPipeToo)
{
    const LogCapture log;
    socket().implClose();
    const std::string printed = printedBy([this] {
        Receiver receiver(socket());
        EXPECT_TRUE(receiver.isWaiting());
        EXPECT_TRUE(socket().close());
        EXPECT_EQ(receiver.result(), 0);
        EXPECT_EQ(receive(), "");
    });
    EXPECT_EQ(printed, "");
    EXPECT_THAT(log.texts(), ElementsAre(" no data received in recvfrom"));
}

TEST_F(MulticastThreads, registersNothingOnceItIsClosed)
{
    const StdoutCapture ignored;
    const LogCapture log;
    socket().close();
    EXPECT_EQ(registerOn(textB), -1) << "it still counts as bound";
    EXPECT_EQ(send("x"), 3);

    MulticastUdpSocket other;
    other.close();
    HostAddress group(textA);
    EXPECT_EQ(other.registerOnMulticastGroup({&group}, port(), false), 5);
    EXPECT_EQ(other.registerOnMulticastGroup({&group}, port(), true), 5);
    EXPECT_EQ(other.sendto("x", 1, port()), 3);
    EXPECT_THAT(log.texts(), ElementsAre("dropMulticastMembership failed", "addMulticastMembership failed",
                                         "bind failed", "bind failed", "addMulticastMembership failed"));
}

TEST_F(MulticastThreads, closesNothingUnderACallThatHasItsDescriptor)
{
    EXPECT_THAT(closedDuring(interpose::sendto, [this] { EXPECT_EQ(send("hello"), 0); }),
                ElementsAre("done", "closed"));
}

TEST_F(MulticastThreads, closesNothingUnderACallThatReceives)
{
    EXPECT_EQ(send("hello"), 0);
    EXPECT_THAT(closedDuring(interpose::recvfrom, [this] { EXPECT_EQ(receive(), "hello"); }),
                ElementsAre("done", "closed"));
}

TEST_F(MulticastThreads, closesUnderACallThatWaits)
{
    const StdoutCapture ignored;
    // As when the datagram turned out to be damaged that `select` had announced.
    Interposed announcing(interpose::select, [](auto, int count, fd_set* ready, auto...) {
        FD_CLR(count - 1, ready);  // the pipe, whose descriptor is the highest
        return 1;
    });
    std::atomic<long> number{0};
    Interposed waiting(interpose::recvfrom, [&](auto real, auto... arguments) {
        number = threadNumber();
        return real(arguments...);
    });
    long result = 1000;
    std::thread receiver([&] {
        char buffer[16];
        result = socket().recvfrom(buffer, sizeof buffer, nullptr, nullptr);
    });
    EXPECT_TRUE(waitUntil([&] { return number != 0 && isAsleep(number); }));
    socket().close();
    receiver.join();
    EXPECT_EQ(result, 0) << "the close ends the call";
}

TEST_F(MulticastThreads, wakesAnyNumberOfTimesWithoutWaiting)
{
    const std::string printed = printedBy([this] {
        for (int time = 0; time < 70000; ++time)  // more than a pipe holds
            EXPECT_TRUE(socket().wakeUp());
    });
    EXPECT_EQ(printed.size(), 70000 * std::string("Wakeup\n").size());
}

TEST_F(MulticastThreads, sendsWhileItReceives)
{
    const int count = stressRounds(2000);
    std::atomic<int> received{0};
    std::vector<std::string> wrong;
    std::thread receiver([&] {
        for (int number = 0; number < count; ++number) {
            const std::string text = receive();
            if (text != std::to_string(number))
                wrong.push_back(text);
            ++received;
        }
    });
    for (int number = 0; number < count; ++number) {
        EXPECT_TRUE(waitUntil([&] { return received > number - 50; }));  // no more than a socket holds
        EXPECT_EQ(send(std::to_string(number)), 0);
    }
    receiver.join();
    EXPECT_THAT(wrong, IsEmpty());
}

TEST_F(MulticastThreads, isWokenOrClosedWhateverTheMomentOfItsWait)
{
    const StdoutCapture ignored;
    const LogCapture warnings;  // of a wait that met the close
    for (int round = 0; round < stressRounds(300); ++round) {
        MulticastUdpSocket all;
        HostAddress group(textA);
        ASSERT_EQ(all.registerOnMulticastGroup({&group}, port(), false), 0);
        const bool closed = round % 2 == 0;
        long result = 1000;
        StartingLine line(2);
        std::thread receiver([&] {
            char buffer[16];
            line.wait();
            result = all.recvfrom(buffer, sizeof buffer, nullptr, nullptr);
        });
        line.wait();
        for (int turn = 0; turn < round % 5; ++turn)
            std::this_thread::yield();
        closed ? all.close() : all.wakeUp();
        receiver.join();
        ASSERT_TRUE(result == -1 || (closed && result == 0)) << result;
    }
}

TEST_F(MulticastThreads, isWokenAndClosedAtAnyTime)
{
    const StdoutCapture ignored;
    const LogCapture warnings;  // of a wait that had yet to begin, and of datagrams that had
    for (int round = 0; round < stressRounds(100); ++round) {
        MulticastUdpSocket all;
        HostAddress group(textA);
        ASSERT_EQ(all.registerOnMulticastGroup({&group}, port(), false), 0);
        std::atomic<int> sent{0};
        std::thread receiver([&all] {
            char buffer[16];
            while (all.recvfrom(buffer, sizeof buffer, nullptr, nullptr) > 0) {
            }
        });
        std::thread sender([&all, &sent, this] {
            while (all.sendto("x", 1, port()) == 0)
                ++sent;
        });
        EXPECT_TRUE(waitUntil([&] { return sent > round % 10; }));
        {
            ThreadGroup enders(2, [&all](int number) { number == 0 ? all.wakeUp() : all.close(); });
        }
        receiver.join();
        sender.join();
    }
}
