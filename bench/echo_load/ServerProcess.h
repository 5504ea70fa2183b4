// A server under load, as a child process.
#ifndef KXPAL_BENCH_SERVER_PROCESS_H
#define KXPAL_BENCH_SERVER_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

/// Runs a server that prints "... port <port> ..." in its first line, and ends it with SIGTERM.
class ServerProcess {
public:
    /// @param command  the program and its arguments
    explicit ServerProcess(std::vector<std::string> command);
    ~ServerProcess();

    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// @return the port; 0 when the server did not start
    unsigned short port() const { return _port; }

private:
    pid_t _child;
    int _output;
    unsigned short _port;
};

#endif
