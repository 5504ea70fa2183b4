// A host with a global called `funcs`, as the library's table of accept functions is called. Each goes its own way: the
// server accepts, and nothing writes to the host's global.
#include <kxPAL/Application.h>
#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/TcpSocket.h>
#include <kxPAL/TcpStream.h>

#include <cstdio>

// No address of a function in it: whoever takes it for a table of functions crashes.
const unsigned long unlikely = 0x5ca1ab1e;
extern unsigned long funcs[6];
unsigned long funcs[6] = {unlikely, unlikely, unlikely, unlikely, unlikely, unlikely};

namespace {

class Server : public Murn::AsyncTcpServer {
public:
    Server() : AsyncTcpServer(IPv4), accepted(0) {}

    void newConnection(Murn::TcpStream* stream) override
    {
        delete stream;
        ++accepted;
        Murn::Application::Quit();
    }

    int accepted;
};

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    Server server;
    if (!server.bind(Murn::HostAddress(Murn::HostAddress::LoopbackIPv4), 0) || !server.listen())
        return 1;
    server.asyncAccept();

    Murn::TcpSocket client(Murn::Socket::IPv4);
    if (!client.connect(Murn::HostAddress(Murn::HostAddress::LoopbackIPv4), server.localPort()))
        return 1;
    application.exec();

    int changed = 0;
    for (const unsigned long word : funcs)
        changed += word != unlikely ? 1 : 0;
    std::printf("accepted %d, changed %d\n", server.accepted, changed);
    return 0;
}
