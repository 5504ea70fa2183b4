// A network that belongs to one process and its children, and ends with them.
#include "PrivateNetwork.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

constexpr int noNetwork = 10;
constexpr int noDevices = 11;
constexpr int noTool = 127;  // what execvp() leaves to the child that calls it

bool writeText(const char* path, const std::string& text)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd == -1)
        return false;
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    return written;
}

// The user is root in a namespace of its own, and nobody else is there.
bool enterAsUser()
{
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 && writeText("/proc/self/setgroups", "deny") &&
           writeText("/proc/self/uid_map", "0 " + user + " 1") && writeText("/proc/self/gid_map", "0 " + group + " 1");
}

bool tryToEnter()
{
    return ::unshare(CLONE_NEWNET) == 0 || enterAsUser();
}

// The exit status of the child, or -1 for one that ended otherwise.
int statusOf(pid_t child)
{
    int status = 0;
    return child != -1 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int runIp(const std::string& command)
{
    std::vector<std::string> words = {"ip"};
    std::istringstream input(command);
    for (std::string word; input >> word;)
        words.push_back(word);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    const pid_t child = ::fork();
    if (child == 0) {
        ::execvp("ip", arguments.data());
        ::_exit(noTool);
    }
    return statusOf(child);
}

// In the child that tries.
int tryAll()
{
    if (!tryToEnter())
        return noNetwork;
    ::close(STDERR_FILENO);  // the tool need not say what is said in the reason to skip
    const int status = runIp("link add near type veth peer name far");
    return status == 0 || status == noTool ? status : noDevices;
}

}  // namespace

namespace privatenetwork {

std::string obstacle()
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(tryAll());
    switch (statusOf(child)) {
        case 0:
            return "";
        case noTool:
            return "the ip tool (package iproute2) is missing";
        case noDevices:
            return "this machine has no virtual network devices (veth)";
        default:
            return "this machine allows no network namespace (it takes root, or user namespaces for ordinary users)";
    }
}

void enter()
{
    if (!tryToEnter())
        throw std::runtime_error("no private network");
}

void ip(const std::string& command)
{
    if (runIp(command) != 0)
        throw std::runtime_error("this failed: ip " + command);
}

void addDevice(const std::string& name, const std::string& hardwareAddress)
{
    ip("link add " + name + " address " + hardwareAddress + " type veth peer name far" + name);
}

}  // namespace privatenetwork
