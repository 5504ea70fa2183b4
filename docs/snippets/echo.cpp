// An echo server and a client of it on one thread's loop.
#include <kxPAL/Application.h>
#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/HostAddress.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/TcpStream.h>

#include <csignal>
#include <memory>
#include <string>

namespace {

// [write all]
bool writeAll(Murn::IStream& stream, const void* data, long size)
{
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const long written = stream.writeData(next, static_cast<unsigned long>(size));
        if (written <= 0)
            return false;
        next += written;  // one call may take less than it was given
        size -= written;
    }
    return true;
}
// [end]

// [session]
class Session : public Murn::IStreamReadHandler {
public:
    explicit Session(Murn::TcpStream* stream) : _stream(stream) { readMore(); }

    void readDone(void* buffer, long result) override
    {
        if (result > 0 && writeAll(*_stream, buffer, result)) {
            readMore();  // each arming is good for one read
            return;
        }
        delete this;                // and the stream with it, which is allowed here; touch nothing of it afterwards
        Murn::Application::Quit();  // one connection is enough for an example
    }

private:
    void readMore() { _stream->asyncReadData(_buffer, sizeof _buffer, this); }

    std::unique_ptr<Murn::TcpStream> _stream;
    char _buffer[4096];
};
// [end]

// [server]
class EchoServer : public Murn::AsyncTcpServer {
public:
    EchoServer() : AsyncTcpServer(Murn::Socket::IPv4) {}

    void newConnection(Murn::TcpStream* stream) override
    {
        new Session(stream);  // the stream is ours from here on
        asyncAccept();        // each arming is good for one connection
    }
};
// [end]

// [client]
class Client : public Murn::IStreamReadHandler {
public:
    bool ask(unsigned short port, const std::string& text)
    {
        _stream.reset(new Murn::TcpStream(Murn::Socket::IPv4));
        if (!_stream->connect(Murn::HostAddress(Murn::HostAddress::LoopbackIPv4), port))
            return false;
        _awaited = text.size();
        readMore();
        return writeAll(*_stream, text.data(), static_cast<long>(text.size()));
    }

    void readDone(void* buffer, long result) override
    {
        if (result > 0)
            _answer.append(static_cast<char*>(buffer), static_cast<std::size_t>(result));
        if (result > 0 && _answer.size() < _awaited)
            readMore();  // a stream knows no messages, only bytes
        else
            _stream.reset();  // closes the connection; the client itself lives on
    }

    const std::string& answer() const { return _answer; }

private:
    void readMore() { _stream->asyncReadData(_buffer, sizeof _buffer, this); }

    std::unique_ptr<Murn::TcpStream> _stream;
    std::string _answer;
    std::size_t _awaited = 0;
    char _buffer[4096];
};
// [end]

}  // namespace

int main(int argc, char** argv)
{
    // [main]
    std::signal(SIGPIPE, SIG_IGN);  // a peer that is gone is a failed write and not the end of the process
    Murn::Application application(argc, argv);

    EchoServer server;
    server.setSocketReuseAddr(true);  // a restarted server gets its port back at once
    if (!server.bind(Murn::HostAddress(Murn::HostAddress::LoopbackIPv4), 0) || !server.listen())
        return 1;
    server.asyncAccept();
    // [end]

    Client client;
    if (!client.ask(server.localPort(), "the same again"))
        return 1;
    application.exec();
    return client.answer() == "the same again" ? 0 : 1;
}
