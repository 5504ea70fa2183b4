// A small network of the test's own: several hosts on the cables of a made-up building.
#include "NetworkLab.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "Wait.h"

namespace {

constexpr std::size_t largestMessage = 64 * 1024;
constexpr int limitMs = 60000;  // generous, since it passes only when a test fails

// Forks. The child ends with the test at the latest.
pid_t forkFromTest()
{
    std::fflush(nullptr);  // else the child would print it once more
    const pid_t test = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != test)
            ::_exit(1);
    }
    return child;
}

int statusOf(pid_t child)
{
    int status = 0;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool writeFile(const std::string& path, const std::string& text)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd == -1)
        return false;
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    return written;
}

int openSpace(pid_t process, const char* kind)
{
    const std::string path = "/proc/" + std::to_string(process) + "/ns/" + kind;
    return ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

std::string readAll(int fd)
{
    std::string all;
    char part[1024];
    ssize_t count = 0;
    while ((count = ::pread(fd, part, sizeof part, static_cast<off_t>(all.size()))) > 0)
        all.append(part, static_cast<std::size_t>(count));
    return all;
}

// The bridge's end of an interface's cable.
std::string portOf(std::size_t host, int interface)
{
    return "h" + std::to_string(host) + "e" + std::to_string(interface);
}

// A child that makes new namespaces and stays in them until this object goes, for the test to get hold of them.
class Pioneer {
public:
    template <typename Enter>
    Pioneer(int flags, Enter enter)
    {
        std::array<int, 2> ends{-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
            return;
        _child = forkFromTest();
        if (_child == 0) {
            ::close(ends[0]);
            const int error = enter() && ::unshare(flags) == 0 ? 0 : errno;
            [[maybe_unused]] const ssize_t told = ::send(ends[1], &error, sizeof error, MSG_NOSIGNAL);
            char nothing = 0;
            [[maybe_unused]] const ssize_t end = ::read(ends[1], &nothing, 1);  // until the test has let go
            ::_exit(0);
        }
        ::close(ends[1]);
        _channel = ends[0];
        if (_child == -1 || ::read(_channel, &_error, sizeof _error) != sizeof _error)
            _error = ECHILD;
    }

    ~Pioneer()
    {
        ::close(_channel);
        if (_child > 0)
            statusOf(_child);
    }

    Pioneer(const Pioneer&) = delete;
    Pioneer& operator=(const Pioneer&) = delete;

    // 0 or why it did not get there.
    int error() const { return _error; }
    pid_t process() const { return _child; }

private:
    pid_t _child = -1;
    int _channel = -1;
    int _error = ECHILD;
};

}  // namespace

NetworkLab::NetworkLab(const std::vector<int>& interfaces)
{
    static_cast<void>(build(interfaces));
}

NetworkLab::~NetworkLab()
{
    for (const int space : _spaces)
        ::close(space);
    if (_userSpace != -1)
        ::close(_userSpace);
}

std::string NetworkLab::address(std::size_t host, int interface)
{
    return "10." + std::to_string(90 + interface) + ".0." + std::to_string(host + 1);
}

bool NetworkLab::enter(std::size_t host) const
{
    return host + 1 < _spaces.size() && enterSpace(_spaces[host]);
}

bool NetworkLab::setUp(std::size_t host, int interface, bool up) const
{
    std::string complaint;
    const std::string command = "link set eth" + std::to_string(interface) + (up ? " up\n" : " down\n");
    return runIp(_spaces.at(host), command, complaint) && (!up || awaitPort(host, interface));
}

bool NetworkLab::build(const std::vector<int>& interfaces)
{
    if (::geteuid() != 0) {
        const Pioneer pioneer(CLONE_NEWUSER, [] { return true; });
        if (pioneer.error() != 0)
            return fail(std::string("users of this machine may not have namespaces: ") +
                        std::strerror(pioneer.error()));
        const std::string process = "/proc/" + std::to_string(pioneer.process());
        const bool mapped = writeFile(process + "/setgroups", "deny") &&
                            writeFile(process + "/uid_map", "0 " + std::to_string(::geteuid()) + " 1") &&
                            writeFile(process + "/gid_map", "0 " + std::to_string(::getegid()) + " 1");
        _userSpace = openSpace(pioneer.process(), "user");
        if (!mapped || _userSpace == -1)
            return fail(std::string("users of this machine cannot set up namespaces: ") + std::strerror(errno));
    }
    for (std::size_t space = 0; space < interfaces.size() + 1; ++space) {
        if (!addSpace())
            return false;
    }
    if (!wire(interfaces))
        return false;
    for (std::size_t host = 0; host < interfaces.size(); ++host)
        configure(host, interfaces[host]);
    return true;
}

bool NetworkLab::addSpace()
{
    const Pioneer pioneer(CLONE_NEWNET, [this] { return _userSpace == -1 || ::setns(_userSpace, CLONE_NEWUSER) == 0; });
    const int space = pioneer.error() == 0 ? openSpace(pioneer.process(), "net") : -1;
    if (space == -1)
        return fail(std::string("this process may not make network namespaces: ") +
                    std::strerror(pioneer.error() != 0 ? pioneer.error() : errno));
    _spaces.push_back(space);
    return true;
}

bool NetworkLab::enterSpace(int net) const
{
    return (_userSpace == -1 || ::setns(_userSpace, CLONE_NEWUSER) == 0) && ::setns(net, CLONE_NEWNET) == 0;
}

// Lays a cable from each interface to the bridge of its network.
bool NetworkLab::wire(const std::vector<int>& interfaces)
{
    const int networks = interfaces.empty() ? 0 : *std::max_element(interfaces.begin(), interfaces.end());
    std::string commands;
    for (int network = 0; network < networks; ++network) {
        const std::string bridge = "br" + std::to_string(network);
        // Without snooping: a bridge that looks for members would be one more thing to wait for.
        commands.append("link add ").append(bridge).append(" type bridge mcast_snooping 0\n");
        commands.append("link set ").append(bridge).append(" up\n");
        for (std::size_t host = 0; host < interfaces.size(); ++host) {
            if (network >= interfaces[host])
                continue;
            const std::string port = portOf(host, network);
            commands += "link add name " + port + " type veth peer name eth" + std::to_string(network) +
                        " netns /proc/self/fd/" + std::to_string(_spaces[host]) + "\n";
            commands.append("link set ").append(port).append(" master ").append(bridge).append(" up\n");
        }
    }
    std::string complaint;
    return runIp(_spaces.back(), commands, complaint) || fail("the cables of the lab cannot be laid: " + complaint);
}

void NetworkLab::configure(std::size_t host, int interfaces) const
{
    std::string commands = "link set lo up\n";
    for (int interface = 0; interface < interfaces; ++interface) {
        const std::string name = "eth" + std::to_string(interface);
        commands.append("addr add ").append(address(host, interface)).append("/24 dev ").append(name).append("\n");
        commands.append("link set ").append(name).append(" up\n");
    }
    std::string complaint;
    if (!runIp(_spaces[host], commands, complaint))
        throw std::runtime_error("a host of the lab cannot be set up: " + complaint);
    for (int interface = 0; interface < interfaces; ++interface) {
        if (!awaitPort(host, interface))
            throw std::runtime_error("a cable of the lab does not carry anything");
    }
}

// The kernel lets a port of a bridge work a moment after both ends of its cable are up.
bool NetworkLab::awaitPort(std::size_t host, int interface) const
{
    return waitUntil([&] {
        std::string output;
        return runIp(_spaces.back(), "link show dev " + portOf(host, interface) + "\n", output) &&
               output.find("bridge_slave state forwarding") != std::string::npos;
    });
}

// Has the tool carry the commands out within a namespace.
bool NetworkLab::runIp(int net, const std::string& commands, std::string& said) const
{
    if (commands.empty())
        return true;
    const int input = ::memfd_create("ip-commands", MFD_CLOEXEC);
    const int output = ::memfd_create("ip-complaints", MFD_CLOEXEC);
    const bool prepared = input != -1 && output != -1 &&
                          ::pwrite(input, commands.data(), commands.size(), 0) == static_cast<ssize_t>(commands.size());
    const pid_t child = prepared ? forkFromTest() : -1;
    if (child == 0) {
        if (!enterSpace(net))
            ::_exit(126);
        ::dup2(input, STDIN_FILENO);
        ::dup2(output, STDOUT_FILENO);
        ::dup2(output, STDERR_FILENO);
        for (const int space : _spaces)
            ::fcntl(space, F_SETFD, 0);  // the commands name them by their numbers
        ::setenv("PATH", "/usr/sbin:/sbin:/usr/bin:/bin", 1);
        ::execlp("ip", "ip", "-details", "-batch", "-", nullptr);
        ::_exit(127);
    }
    const int status = child > 0 ? statusOf(child) : -1;
    if (status == 127)
        said = "the ip tool is missing (package iproute2)";
    else
        said = readAll(output);
    ::close(input);
    ::close(output);
    return status == 0;
}

bool NetworkLab::fail(const std::string& reason)
{
    _reason = reason;
    return false;
}

namespace {

bool sendMessage(int channel, const void* data, std::size_t size)
{
    return ::send(channel, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

}  // namespace

LabProcess::LabProcess(const NetworkLab& lab, std::size_t host) : _child(-1), _channel(-1)
{
    std::array<int, 2> ends{-1, -1};
    // One message a task and one an answer, each whole.
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::runtime_error("no channel to a process of the lab");
    _child = forkFromTest();
    if (_child == -1)
        throw std::runtime_error("no process for the lab");
    _channel = ends[_child == 0 ? 1 : 0];
    ::close(ends[_child == 0 ? 0 : 1]);
    if (_child == 0) {
        if (!lab.enter(host))
            ::_exit(1);
        serve();
    }
}

LabProcess::~LabProcess()
{
    if (_child == -1)
        return;
    ::kill(_child, SIGKILL);
    statusOf(_child);
    ::close(_channel);
}

std::string LabProcess::run(Task task, const std::string& argument)
{
    begin(task, argument);
    return answer();
}

void LabProcess::begin(Task task, const std::string& argument)
{
    // The process is a copy of this one, so the function is at the same place there.
    std::string message(sizeof task, '\0');
    std::memcpy(message.data(), &task, sizeof task);
    message += argument;
    static_cast<void>(sendMessage(_channel, message.data(), message.size()));  // without an answer it shows
}

std::string LabProcess::answer()
{
    pollfd ready{_channel, POLLIN, 0};
    if (::poll(&ready, 1, limitMs) == 0)
        return "(no answer)";
    std::string message(largestMessage, '\0');
    const ssize_t size = ::recv(_channel, message.data(), message.size(), 0);
    // An answer has a mark in front, since a message of no bytes would look like the end.
    if (size < 1)
        return "(gone)";
    return message.substr(1, static_cast<std::size_t>(size) - 1);
}

int LabProcess::end()
{
    ::shutdown(_channel, SHUT_WR);
    const int status = statusOf(_child);
    ::close(_channel);
    _child = -1;
    return status;
}

// The child's side: does one task after another until the test lets go.
void LabProcess::serve() const
{
    std::string message(largestMessage, '\0');
    ssize_t size = 0;
    while ((size = ::recv(_channel, message.data(), message.size(), 0)) >= static_cast<ssize_t>(sizeof(Task))) {
        Task task = nullptr;
        std::memcpy(&task, message.data(), sizeof task);
        const std::string argument = message.substr(sizeof task, static_cast<std::size_t>(size) - sizeof task);
        const std::string reply = "=" + task(argument);
        if (!sendMessage(_channel, reply.data(), reply.size()))
            break;
    }
    std::exit(EXIT_SUCCESS);
}
