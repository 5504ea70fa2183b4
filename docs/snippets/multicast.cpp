// Multicast: a thread that receives, and a host that sends, replaces the groups and ends.
#include <kxPAL/Application.h>
#include <kxPAL/MulticastUdpSocket.h>
#include <kxPAL/Thread.h>

#include <cstdio>
#include <string>

namespace {

// [receiver]
/// Receives until somebody calls wakeUp() on the socket.
class Receiver : public Murn::Thread {
public:
    explicit Receiver(Murn::MulticastUdpSocket& socket) : _socket(socket) { setJoinable(true); }

    void run() override
    {
        char buffer[1500];
        Murn::HostAddress from;
        long size = 0;
        while ((size = _socket.recvfrom(buffer, sizeof buffer, &from, nullptr)) != -1)
            std::printf("%ld bytes from %s\n", size, from.toString().c_str());  // copies of one datagram among them
    }

private:
    Murn::MulticastUdpSocket& _socket;
};
// [end]

const unsigned short port = 5077;

bool replaceGroup(Murn::MulticastUdpSocket& socket, Receiver& receiver)
{
    // [replace]
    socket.wakeUp();  // nobody may receive while groups are registered
    receiver.join();
    socket.implClose();  // the wake-up stays in its pipe, ...
    socket.implInit();   // ... so a new one

    Murn::HostAddress other(std::string("239.1.2.4"));
    const bool isRegistered = socket.registerOnMulticastGroup({&other}, port, false) == 0;
    receiver.start();
    // [end]
    return isRegistered;
}

int talk()
{
    // [register]
    Murn::MulticastUdpSocket socket;  // a socket for each interface
    Murn::HostAddress group(std::string("239.1.2.3"));
    const int result = socket.registerOnMulticastGroup({&group}, port, false);
    if (result != 0) {
        std::printf("nobody to talk to: %d\n", result);  // 4 without an interface
        return result;
    }

    Receiver receiver(socket);
    receiver.start();
    socket.sendto("hello", 5, port);  // out of every interface
    // [end]
    const bool isReplaced = replaceGroup(socket, receiver);

    // [finish]
    socket.wakeUp();
    receiver.join();
    socket.close();  // before the end, where other threads open descriptors: see below
    // [end]
    return isReplaced ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    const Murn::Application application(argc, argv);
    const int result = talk();
    return result == 1 ? 1 : 0;  // without an interface that takes part there is nothing to show
}
