// A talk among people on one network, without a server: what one types goes to a multicast group, on every network
// interface, and all others see it.
#include <kxPAL/Application.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>
#include <kxPAL/MulticastUdpSocket.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "Listener.h"
#include "Message.h"
#include "Options.h"
#include "Terminal.h"

namespace {

constexpr int cannotTalk = 2;
constexpr std::size_t longestText = 1200;  // so that a datagram fits into one packet

/// Takes the warning of the stream that reads the terminal: a pipe whose writer is gone is an end like any other.
class StreamWarnings final : public Murn::LogHandler {
public:
    StreamWarnings() : LogHandler("Stream", Murn::Logger::LevelWarning) { Murn::Logger::InstallHandler(this); }
    ~StreamWarnings() { Murn::Logger::UninstallHandler(this); }

    void HandleLog(const char*, Murn::Logger::LogLevel, const char*) override {}
};

std::uint64_t anyNumber()
{
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

/// Sends lines under a name.
class Speaker {
public:
    Speaker(Murn::MulticastUdpSocket& socket, const Options& options)
        : _socket(socket), _port(options.port), _message{anyNumber(), 0, options.group.toString(), options.name, ""}
    {
    }

    std::uint64_t number() const { return _message.speaker; }

    /// Sends a line, a long one in pieces.
    void say(const std::string& line)
    {
        for (std::size_t begin = 0; begin < line.size(); begin += longestText) {
            ++_message.number;
            _message.text = line.substr(begin, longestText);
            const std::string datagram = _message.toDatagram();
            if (_socket.sendto(datagram.data(), datagram.size(), _port) != 0)
                std::fprintf(stderr, "multicast_chat: nobody will see this: %s\n", _message.text.c_str());
        }
    }

private:
    Murn::MulticastUdpSocket& _socket;
    const unsigned short _port;
    Message _message;  // the last one
};

int failToRegister(int result, const Options& options)
{
    if (result == 4)
        std::fprintf(stderr, "multicast_chat: this machine has no network interface to talk on\n");
    else if (result == 5)
        std::fprintf(stderr, "multicast_chat: another program keeps port %u for itself\n", options.port);
    else
        std::fprintf(stderr, "multicast_chat: no network interface joins the group %s\n",
                     options.group.toString().c_str());
    return cannotTalk;
}

int talk(Murn::Application& application, Options& options)
{
    Murn::MulticastUdpSocket socket;
    if (const int result = socket.registerOnMulticastGroup({&options.group}, options.port, false))
        return failToRegister(result, options);

    StopSignals stopSignals(Murn::Application::Quit);  // before any thread starts
    Speaker speaker(socket, options);
    Listener listener(socket, options.group.toString(), speaker.number());
    const Terminal terminal([&speaker](const std::string& line) { speaker.say(line); }, Murn::Application::Quit);
    if (!stopSignals.isOpen() || !terminal.isOpen() || !listener.begin()) {
        std::fprintf(stderr, "multicast_chat: cannot read the terminal, hear of signals or start a thread\n");
        return cannotTalk;
    }

    std::vector<Murn::NetworkInterfaceInfo> interfaces;
    socket.getNetworkInterfaces(interfaces);
    std::printf("Talking to %s port %u as %s, on %zu interface%s; Ctrl-D, SIGINT (Ctrl-C) or SIGTERM ends it.\n",
                options.group.toString().c_str(), options.port, options.name.c_str(), interfaces.size(),
                interfaces.size() == 1 ? "" : "s");
    application.exec();
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (const std::optional<int> status = readOptions(argc, argv, options))
        return *status;

    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // whoever reads a pipe gets each line at once
    const StreamWarnings streamWarnings;
    Murn::Application application(argc, argv);
    return talk(application, options);
}
