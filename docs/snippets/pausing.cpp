// A reader that pauses: why the watch has to go meanwhile, and how it does so quietly.
#include <kxPAL/Application.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/TcpStream.h>
#include <kxPAL/Thread.h>
#include <kxPAL/Timer.h>

#include <sys/socket.h>
#include <unistd.h>

namespace {

// [pause]
/// Reads one buffer full each time, and then nothing for a while.
class SlowReader : public Murn::IStreamReadHandler, public Murn::Timer {
public:
    explicit SlowReader(int fd) : _stream(fd) { readMore(); }

    void readDone(void* /*buffer*/, long result) override
    {
        if (result <= 0) {
            Murn::Application::Quit();
            return;
        }
        _received += result;
        // A watch without an armed read would die at the next byte, with a warning. Moving the stream to the thread
        // that it is on drops the watch.
        _stream.moveToThread(Murn::Thread::CurrentThread());
        start(5, nullptr);
    }

    void timeout() override
    {
        stop();
        readMore();  // with a new watch
    }

    long received() const { return _received; }

private:
    void readMore() { _stream.asyncReadData(_buffer, sizeof _buffer, this); }

    Murn::TcpStream _stream;
    long _received = 0;
    char _buffer[4];
};
// [end]

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return 1;
    SlowReader reader(ends[0]);
    if (::write(ends[1], "twelve bytes", 12) != 12 || ::shutdown(ends[1], SHUT_WR) != 0)
        return 1;
    application.exec();
    ::close(ends[1]);
    return reader.received() == 12 ? 0 : 1;
}
