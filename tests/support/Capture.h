// What a piece of code prints on standard output.
#ifndef KXPAL_TESTS_CAPTURE_H
#define KXPAL_TESTS_CAPTURE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

/// Collects what the process writes to descriptor 1, by whatever means, while the object lives.
class StdoutCapture {
public:
    StdoutCapture() : _file(::memfd_create("captured-stdout", MFD_CLOEXEC)), _terminal(::dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        if (_file == -1 || _terminal == -1 || ::dup2(_file, STDOUT_FILENO) == -1)
            throw std::runtime_error("standard output cannot be captured");
    }

    ~StdoutCapture()
    {
        std::fflush(stdout);
        ::dup2(_terminal, STDOUT_FILENO);
        ::close(_terminal);
        ::close(_file);
    }

    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    /// What was printed until now.
    std::string text() const
    {
        std::fflush(stdout);
        std::string all;
        char part[4096];
        ssize_t count = 0;
        while ((count = ::pread(_file, part, sizeof part, static_cast<off_t>(all.size()))) > 0)
            all.append(part, static_cast<std::size_t>(count));
        return all;
    }

private:
    int _file;
    int _terminal;
};

/// Calls the function and returns what it printed.
template <typename Function>
std::string printedBy(Function function)
{
    const StdoutCapture capture;
    function();
    return capture.text();
}

#endif
