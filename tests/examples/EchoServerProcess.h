// The echo server as a child process.
#ifndef KXPAL_TESTS_ECHO_SERVER_PROCESS_H
#define KXPAL_TESTS_ECHO_SERVER_PROCESS_H

#include <optional>
#include <string>

#include "ChildProcess.h"

/// A running echo server on a port that the system chose.
class EchoServerProcess : public ChildProcess {
public:
    /// Starts it and waits until it listens.
    /// @param arguments    besides the port
    /// @param descriptors  the limit of open descriptors for it; none for the test's own
    explicit EchoServerProcess(Arguments arguments = {}, std::optional<rlimit> descriptors = std::nullopt);

    /// @return the port; 0 when the server did not start
    unsigned short port() const { return _port; }
    /// Asks it to end, with the signal, and waits.
    /// @return as wait()
    std::optional<int> stop(int signalNumber);

private:
    unsigned short _port;
};

#endif
