// A program of ours as a child process.
#ifndef KXPAL_TESTS_CHILD_PROCESS_H
#define KXPAL_TESTS_CHILD_PROCESS_H

#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// What a child finds when it starts, besides its arguments.
struct Surroundings {
    std::optional<rlimit> descriptors;  ///< The limit of open descriptors; none for the test's own.
    std::function<bool()> enter;        ///< Moves the child to another place before its program starts, if set.
    bool hasInput = false;              ///< Whether its standard input is what the test types; else it is empty.
};

/// Runs a program and collects what it prints. The child ends with this object at the latest, or with the test.
class ChildProcess {
public:
    using Arguments = std::vector<std::string>;

    /// Starts the program with default signal actions, SIGPIPE's among them.
    ChildProcess(const std::string& program, const Arguments& arguments, const Surroundings& surroundings = {});
    /// Kills the child if it still runs.
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// What the child has printed until now on standard output and on standard error.
    std::string output() const;
    std::string errors() const;

    /// Waits, generously, until standard output holds what the expression matches.
    /// @param expression  a regular expression in the form of POSIX
    bool waitForOutput(const std::string& expression) const;

    /// Has the child read something from its standard input.
    void type(const std::string& text) const;
    /// Ends its standard input.
    void endInput();

    void signal(int number) const;
    /// Stops the child where it is, until resume().
    void pause() const;
    void resume() const;
    /// Waits for the child's end, generously.
    /// @return the exit status, or the negated number of the signal that ended it; none when it does not end
    std::optional<int> wait();

private:
    int _input;  // -1 when the child has none of the test's
    int _output;
    int _errors;
    pid_t _child;
    std::optional<int> _status;
};

#endif
