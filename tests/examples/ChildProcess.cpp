// A program of ours as a child process.
#include "ChildProcess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "Wait.h"

namespace {

// A file rather than a pipe: it never fills up, however late the test looks.
int collector(const char* name)
{
    const int fd = ::memfd_create(name, MFD_CLOEXEC);
    if (fd == -1)
        throw std::runtime_error("no room for a child's output");
    return fd;
}

std::string textOf(int fd)
{
    std::string all;
    char part[4096];
    ssize_t count = 0;
    while ((count = ::pread(fd, part, sizeof part, static_cast<off_t>(all.size()))) > 0)
        all.append(part, static_cast<std::size_t>(count));
    return all;
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const Arguments& arguments, const Surroundings& surroundings)
    : _input(-1), _output(collector("child-output")), _errors(collector("child-errors")), _child(-1)
{
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    int ends[2] = {-1, -1};
    if (surroundings.hasInput && ::pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no way to type for a child");

    _child = ::fork();
    if (_child == -1)
        throw std::runtime_error("no child process");
    if (_child != 0) {
        ::close(ends[0]);
        _input = ends[1];
        return;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::signal(SIGPIPE, SIG_DFL);
    if (surroundings.descriptors)
        ::setrlimit(RLIMIT_NOFILE, &*surroundings.descriptors);
    if (surroundings.enter && !surroundings.enter())
        ::_exit(126);
    ::dup2(surroundings.hasInput ? ends[0] : ::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    ::dup2(_output, STDOUT_FILENO);
    ::dup2(_errors, STDERR_FILENO);
    ::execv(program.c_str(), argv.data());
    ::_exit(127);
}

ChildProcess::~ChildProcess()
{
    if (!_status) {
        ::kill(_child, SIGKILL);
        ::waitpid(_child, nullptr, 0);
    }
    endInput();
    ::close(_output);
    ::close(_errors);
}

std::string ChildProcess::output() const
{
    return textOf(_output);
}

std::string ChildProcess::errors() const
{
    return textOf(_errors);
}

void ChildProcess::type(const std::string& text) const
{
    if (::write(_input, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("a child takes no input");
}

void ChildProcess::endInput()
{
    if (_input != -1)
        ::close(_input);
    _input = -1;
}

void ChildProcess::signal(int number) const
{
    if (!_status)
        ::kill(_child, number);
}

bool ChildProcess::waitForOutput(const std::string& expression) const
{
    return waitUntil([&] { return ::testing::Value(output(), ::testing::ContainsRegex(expression)); });
}

void ChildProcess::pause() const
{
    signal(SIGSTOP);
    ::waitpid(_child, nullptr, WUNTRACED);
}

void ChildProcess::resume() const
{
    signal(SIGCONT);
}

std::optional<int> ChildProcess::wait()
{
    int status = 0;
    if (!_status && waitUntil([&] { return ::waitpid(_child, &status, WNOHANG) == _child; }))
        _status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return _status;
}
