// What the user types, and the ways to end, as reads on the main loop.
#include "Terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace {

// A pipe holds this much. If its writer is gone by the time that it is read, what one read leaves behind is lost, so a
// read takes all that there can be.
constexpr std::size_t pipeSize = 65536;

// Gives a stream to what was opened, if it was.
void give(std::unique_ptr<Murn::TcpStream>& stream, int fd)
{
    if (fd != -1)
        stream = std::make_unique<Murn::TcpStream>(fd);
}

}  // namespace

Terminal::Terminal(std::function<void(const std::string&)> line, std::function<void()> end)
    : _line(std::move(line)), _end(std::move(end)), _buffer(pipeSize)
{
    // The stream closes what it is given, and descriptor 0 is to stay.
    give(_stream, ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    if (isOpen())
        readOn();
}

void Terminal::readOn()
{
    _stream->asyncReadData(_buffer.data(), _buffer.size(), this);  // each arming reads once
}

void Terminal::readDone(void* buffer, long result)
{
    if (buffer != nullptr) {
        _rest.append(_buffer.data(), static_cast<std::size_t>(result));
        takeLines();
        readOn();
        return;
    }
    _stream.reset();  // else the end would be reported again and again
    if (!_rest.empty())
        _line(_rest);
    _end();
}

void Terminal::takeLines()
{
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = _rest.find('\n', begin)) != std::string::npos; begin = end + 1)
        _line(_rest.substr(begin, end - begin));
    _rest.erase(0, begin);
}

StopSignals::StopSignals(std::function<void()> stop) : _stop(std::move(stop)), _signal()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) == 0)
        give(_stream, ::signalfd(-1, &signals, SFD_CLOEXEC));
    if (isOpen())
        _stream->asyncReadData(&_signal, sizeof _signal, this);
}

void StopSignals::readDone(void*, long)
{
    _stream.reset();
    _stop();
}
