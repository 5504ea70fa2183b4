// A server under load, as a child process.
#include "ServerProcess.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

namespace {

// Reads up to the end of the line, or of the output.
std::string firstLine(int fd)
{
    std::string line;
    for (char letter = 0; ::read(fd, &letter, 1) == 1 && letter != '\n';)
        line += letter;
    return line;
}

unsigned short portIn(const std::string& line)
{
    const std::string before = " port ";
    const std::size_t place = line.find(before);
    if (place == std::string::npos)
        return 0;
    return static_cast<unsigned short>(std::strtoul(line.c_str() + place + before.size(), nullptr, 10));
}

}  // namespace

ServerProcess::ServerProcess(std::vector<std::string> command) : _child(-1), _output(-1), _port(0)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0)
        return;

    _child = ::fork();
    if (_child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    ::close(ends[1]);
    _output = ends[0];  // what else the server prints stays in the pipe, which is never full in a few seconds
    _port = portIn(firstLine(_output));
}

ServerProcess::~ServerProcess()
{
    if (_child != -1) {
        ::kill(_child, SIGTERM);
        ::waitpid(_child, nullptr, 0);
    }
    if (_output != -1)
        ::close(_output);
}
