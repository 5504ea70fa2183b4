// The echo server as a child process.
#include "EchoServerProcess.h"

#include <utility>

namespace {

ChildProcess::Arguments onAnyPort(ChildProcess::Arguments arguments)
{
    arguments.insert(arguments.end(), {"--port", "0"});
    return arguments;
}

}  // namespace

EchoServerProcess::EchoServerProcess(Arguments arguments, std::optional<rlimit> descriptors)
    : ChildProcess(ECHO_SERVER_PROGRAM, onAnyPort(std::move(arguments)), {descriptors, nullptr, false}), _port(0)
{
    // The line "Listening on 127.0.0.1 port 7007 with 2 threads; ...", complete.
    if (!waitForOutput("Listening on [^ ]+ port [0-9]+ with [^\n]*\n"))
        return;
    const std::string line = output();
    const std::string before = " port ";
    _port = static_cast<unsigned short>(std::stoul(line.substr(line.find(before) + before.size())));
}

std::optional<int> EchoServerProcess::stop(int signalNumber)
{
    signal(signalNumber);
    return wait();
}
