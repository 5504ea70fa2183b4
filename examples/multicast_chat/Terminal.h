// What the user types, and the ways to end, as reads on the main loop.
#ifndef MULTICAST_CHAT_TERMINAL_H
#define MULTICAST_CHAT_TERMINAL_H

#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/TcpStream.h>
#include <sys/signalfd.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// Reads lines from standard input on the loop of the thread that makes it. A stream takes any descriptor that can be
/// waited for: the terminal's works like that of a connection.
class Terminal : private Murn::IStreamReadHandler {
public:
    /// @param line  called with each line, without its newline
    /// @param end   called once at the end of the input
    Terminal(std::function<void(const std::string&)> line, std::function<void()> end);

    /// @return whether there is a standard input
    bool isOpen() const { return _stream != nullptr; }

private:
    void readDone(void* buffer, long result) override;
    void readOn();
    void takeLines();

    std::function<void(const std::string&)> _line;
    std::function<void()> _end;
    std::vector<char> _buffer;
    std::string _rest;  // of a line whose end is still to come
    std::unique_ptr<Murn::TcpStream> _stream;
};

/// Hears of SIGINT and SIGTERM on the loop of the thread that makes it: Linux hands them out through a descriptor, so
/// that no code ever runs in a signal handler, where next to nothing is allowed.
class StopSignals : private Murn::IStreamReadHandler {
public:
    /// Before any other thread starts: blocks the signals for this thread and for all that it starts from now on.
    /// @param stop  called once, when one of them comes
    explicit StopSignals(std::function<void()> stop);

    /// @return whether the system hands the signals out
    bool isOpen() const { return _stream != nullptr; }

private:
    void readDone(void* buffer, long result) override;

    std::function<void()> _stop;
    signalfd_siginfo _signal;
    std::unique_ptr<Murn::TcpStream> _stream;
};

#endif
