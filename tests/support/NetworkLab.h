// A small network of the test's own: several hosts on the cables of a made-up building.
#ifndef KXPAL_TESTS_NETWORK_LAB_H
#define KXPAL_TESTS_NETWORK_LAB_H

#include <sys/types.h>

#include <string>
#include <vector>

/// Hosts that exist for one test. Each is a network namespace without a name, in which the test's processes can be:
/// with a loopback device and with interfaces eth0, eth1 and so on, of which each eth0 is on one network with the other
/// eth0, each eth1 with the other eth1. The machine's own interfaces are not touched. Nothing is left behind, however
/// the test ends: the namespaces go with the last process that knows them.
///
/// It takes root, or a system that lets users have namespaces, and the `ip` tool of the package iproute2. A test asks
/// for the reason, and skips itself when there is one:
///
///     const NetworkLab lab({1, 2});
///     if (!lab.reason().empty())
///         GTEST_SKIP() << lab.reason();
///
/// Hosts and interfaces are counted from 0. One thread at a time, not locked.
class NetworkLab {
public:
    /// Sets the hosts up. Throws std::runtime_error when that fails although this machine should allow it.
    /// @param interfaces  how many interfaces each host has
    explicit NetworkLab(const std::vector<int>& interfaces);
    ~NetworkLab();

    NetworkLab(const NetworkLab&) = delete;
    NetworkLab& operator=(const NetworkLab&) = delete;

    /// Why there is no lab; empty when there is one.
    const std::string& reason() const { return _reason; }

    /// The address of an interface: 10.90.0.1 is that of the first host's eth0, 10.91.0.2 of the second host's eth1.
    static std::string address(std::size_t host, int interface);

    /// Moves the calling process to a host, for good. For a process that was just forked, and has one thread.
    /// @return whether it is there
    bool enter(std::size_t host) const;
    /// Switches an interface on or off, as an administrator does: its address stays. When this is back, one that was
    /// switched on carries what is sent.
    /// @return whether that worked
    bool setUp(std::size_t host, int interface, bool up) const;

private:
    bool build(const std::vector<int>& interfaces);
    bool addSpace();
    bool enterSpace(int net) const;
    bool wire(const std::vector<int>& interfaces);
    void configure(std::size_t host, int interfaces) const;
    bool awaitPort(std::size_t host, int interface) const;
    bool runIp(int net, const std::string& commands, std::string& said) const;
    bool fail(const std::string& reason);

    std::string _reason;
    int _userSpace = -1;       // the user namespace that owns the others, for users other than root
    std::vector<int> _spaces;  // one for each host, and the last for the cables
};

/// A process of the test's own on a host of the lab, which does what the test asks for. It is forked from the test and
/// runs the test program's functions, with globals of its own.
class LabProcess {
public:
    /// What the process can be asked for: a function, most of the time a lambda without captures, that gets the
    /// argument and answers with a text.
    using Task = std::string (*)(const std::string& argument);

    /// Starts the process. The test has one thread at that time.
    LabProcess(const NetworkLab& lab, std::size_t host);
    /// Ends the process, if it is still there.
    ~LabProcess();

    LabProcess(const LabProcess&) = delete;
    LabProcess& operator=(const LabProcess&) = delete;

    /// Has a task done.
    /// @return the answer; "(gone)" when the process ended over it, "(no answer)" when none comes for a minute
    std::string run(Task task, const std::string& argument = "");
    /// Has a task begun. Before the next one, the answer is to be taken.
    void begin(Task task, const std::string& argument = "");
    /// Waits for the end of the task that was begun.
    /// @return as run()
    std::string answer();

    /// Has the process end in order: the way a program's main function does, so that sanitizers look at what it leaves.
    /// @return the exit status, or the negated number of the signal that ended it
    int end();

private:
    [[noreturn]] void serve() const;

    pid_t _child;
    int _channel;  // this process's end
};

#endif
