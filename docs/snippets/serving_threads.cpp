// Accepting on one thread's loop and serving on others.
#include <kxPAL/Application.h>
#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/Event.h>
#include <kxPAL/HostAddress.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/Object.h>
#include <kxPAL/TcpSocket.h>
#include <kxPAL/TcpStream.h>
#include <kxPAL/Thread.h>

#include <csignal>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace {

class Worker;

// [session]
/// Sends back what it receives. Lives on its worker's thread and belongs to the worker.
class Session : public Murn::IStreamReadHandler {
public:
    Session(Worker* worker, Murn::TcpStream* stream) : _worker(worker), _stream(stream) { readMore(); }

    void readDone(void* buffer, long result) override;

private:
    void readMore() { _stream->asyncReadData(_buffer, sizeof _buffer, this); }

    Worker* _worker;
    std::unique_ptr<Murn::TcpStream> _stream;
    char _buffer[4096];
};
// [end]

// [worker]
/// A new connection on its way to the thread that serves it.
class Connected : public Murn::Event {
public:
    static const unsigned int Type = 100;

    explicit Connected(Murn::TcpStream* stream) : Event(Type, nullptr), _stream(stream) {}

    Murn::TcpStream* _stream;
};

class Worker : public Murn::Object {
public:
    static const unsigned int Finish = 101;

    ~Worker() override
    {
        for (Session* const session : _sessions)
            delete session;
    }

    void event(Murn::Event* event) override
    {
        if (event->_type == Connected::Type) {
            _sessions.insert(new Session(this, static_cast<Connected*>(event)->_stream));
        } else if (event->_type == Finish) {
            destroy();
            Murn::Thread::CurrentThread()->stop();
        } else {
            Murn::Object::event(event);
        }
    }

    void remove(Session* session)
    {
        _sessions.erase(session);
        delete session;
    }

private:
    std::set<Session*> _sessions;
};
// [end]

void Session::readDone(void* buffer, long result)
{
    if (result > 0 && _stream->writeData(buffer, static_cast<unsigned long>(result)) == result)
        readMore();
    else
        _worker->remove(this);
}

// [server]
class Server : public Murn::AsyncTcpServer {
public:
    explicit Server(const std::vector<Worker*>& workers) : AsyncTcpServer(Murn::Socket::IPv4), _workers(workers) {}

    void newConnection(Murn::TcpStream* stream) override
    {
        Worker* const worker = _workers[_next++ % _workers.size()];
        stream->moveToThread(worker->thread());                       // before a read is armed, ...
        Murn::Application::PostEvent(worker, new Connected(stream));  // ... which the worker does over there
        asyncAccept();
    }

private:
    std::vector<Worker*> _workers;
    std::size_t _next = 0;
};
// [end]

const int clients = 4;

// What a client elsewhere would do: one connection after the other, each with a question and its echo.
int askAll(unsigned short port)
{
    int answered = 0;
    for (int client = 0; client < clients; ++client) {
        Murn::TcpSocket socket(Murn::Socket::IPv4);
        char echo[4];
        if (socket.connect(Murn::HostAddress(Murn::HostAddress::LoopbackIPv4), port) && socket.send("ping", 4) == 4 &&
            socket.recv(echo, sizeof echo) > 0)
            ++answered;
    }
    Murn::Application::Quit();
    return answered;
}

}  // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    Murn::Application application(argc, argv);

    // [threads]
    Murn::Thread threads[2];
    std::vector<Worker*> workers;
    for (Murn::Thread& thread : threads) {
        thread.setJoinable(true);
        thread.start();
        workers.push_back(new Worker);
        workers.back()->moveToThread(&thread);
    }
    // [end]

    int answered = 0;
    {
        Server server(workers);
        if (!server.bind(Murn::HostAddress(Murn::HostAddress::LoopbackIPv4), 0) || !server.listen())
            return 1;
        server.asyncAccept();
        const unsigned short port = server.localPort();
        std::thread others([&answered, port] { answered = askAll(port); });
        application.exec();
        others.join();
    }

    // [end of service]
    for (Worker* const worker : workers)
        Murn::Application::PostEvent(worker, new Murn::Event(Worker::Finish, nullptr));
    for (Murn::Thread& thread : threads)
        thread.join();
    // [end]
    return answered == clients ? 0 : 1;
}
