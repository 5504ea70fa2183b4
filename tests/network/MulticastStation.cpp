// A host of the lab with a multicast socket that sends, and hears whatever comes.
#include "MulticastStation.h"

#include <kxPAL/MulticastUdpSocket.h>

#include <algorithm>
#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "Capture.h"
#include "LogCapture.h"
#include "ThreadState.h"
#include "Wait.h"

namespace {

using Texts = MulticastStation::Texts;

constexpr unsigned short port = 5000;  // the hosts have all ports for themselves

Texts linesOf(const std::string& text)
{
    Texts lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string joined(const Texts& lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

// What is over there: what follows runs in the process of the host, each with a socket of its own.
class Host {
public:
    ~Host() { stopListening(); }

    // Nobody may receive meanwhile, so the thread that does is woken and begins anew, with a new pipe.
    int registerOn(const Texts& groups)
    {
        std::list<Murn::HostAddress> addresses;
        std::list<Murn::HostAddress*> list;
        for (const std::string& group : groups)
            list.push_back(&addresses.emplace_back(group));
        stopListening();
        const int result = socket.registerOnMulticastGroup(list, port, false);
        _number = 0;
        if (result == 0)
            _receiver = std::thread([this] { receiveAll(); });
        return result;
    }

    // Waits until the thread waits, and then for its end after what is done to it.
    template <typename Function>
    int endReceiver(Function function)
    {
        const bool waits = waitUntil([this] { return _number != 0 && waitsForDescriptors(_number); });
        function();
        _receiver.join();
        return waits ? static_cast<int>(_lastResult) : 1000;
    }

    std::string heard()
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return joined(_heard);
    }

    void forget()
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _heard.clear();
        _numbers.clear();
        numbersHeard = 0;
    }

    int count(const Texts& senders, unsigned int times)
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        int complete = 0;
        for (std::size_t number = 0;; ++number) {
            for (const std::string& sender : senders) {
                const std::vector<unsigned int>& counts = _numbers[sender];
                if (number >= counts.size() || counts[number] != times)
                    return complete;
            }
            ++complete;
        }
    }

    StdoutCapture printed;
    LogCapture log;
    std::size_t warningsTold = 0;
    Murn::MulticastUdpSocket socket;
    std::atomic<int> numbersHeard{0};

private:
    void stopListening()
    {
        if (!_receiver.joinable())
            return;
        socket.wakeUp();
        _receiver.join();
        socket.implClose();
        socket.implInit();
    }

    void receiveAll()
    {
        char buffer[128];
        Murn::HostAddress from;
        _number = threadNumber();
        while ((_lastResult = socket.recvfrom(buffer, sizeof buffer, &from, nullptr)) > 0)
            keep(from.toString(), std::string(buffer, static_cast<std::size_t>(_lastResult)));
    }

    void keep(const std::string& sender, const std::string& text)
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        if (!text.starts_with("#")) {
            _heard.push_back(sender + " " + text);
            return;
        }
        const std::size_t number = std::stoul(text.substr(1));
        std::vector<unsigned int>& counts = _numbers[sender];
        if (counts.size() <= number)
            counts.resize(number + 1);
        ++counts[number];
        ++numbersHeard;
    }

    std::mutex _mutex;
    Texts _heard;                                               // guarded by _mutex
    std::map<std::string, std::vector<unsigned int>> _numbers;  // guarded by _mutex
    std::atomic<long> _number{0};
    long _lastResult = 0;
    std::thread _receiver;
};

std::unique_ptr<Host> host;

}  // namespace

MulticastStation::MulticastStation(const NetworkLab& lab, std::size_t number) : _process(lab, number)
{
    _process.run([](const std::string&) {
        host = std::make_unique<Host>();
        return std::string();
    });
}

Texts MulticastStation::interfaces()
{
    return linesOf(_process.run([](const std::string&) {
        std::vector<Murn::NetworkInterfaceInfo> list;
        host->socket.getNetworkInterfaces(list);
        Texts lines;
        for (const Murn::NetworkInterfaceInfo& interface : list)
            lines.push_back(interface.name + " " + interface.address.toString());
        return joined(lines);
    }));
}

int MulticastStation::registerOn(const Texts& groups)
{
    return std::stoi(
        _process.run([](const std::string& argument) { return std::to_string(host->registerOn(linesOf(argument))); },
                     joined(groups)));
}

int MulticastStation::send(const std::string& text)
{
    return std::stoi(_process.run(
        [](const std::string& argument) {
            return std::to_string(host->socket.sendto(argument.data(), argument.size(), port));
        },
        text));
}

int MulticastStation::sendNumbers(int first, int last)
{
    return std::stoi(_process.run(
        [](const std::string& argument) {
            std::istringstream range(argument);
            int number = 0;
            int end = 0;
            int sent = 0;
            for (range >> number >> end; number <= end; ++number) {
                const std::string datagram = "#" + std::to_string(number);
                sent += host->socket.sendto(datagram.data(), datagram.size(), port) == 0 ? 1 : 0;
            }
            return std::to_string(sent);
        },
        std::to_string(first) + " " + std::to_string(last)));
}

Texts MulticastStation::heard()
{
    Texts lines = linesOf(_process.run([](const std::string&) { return host->heard(); }));
    std::sort(lines.begin(), lines.end());
    return lines;
}

void MulticastStation::forget()
{
    _process.run([](const std::string&) {
        host->forget();
        return std::string();
    });
}

bool MulticastStation::hears(const std::string& senderAndText, std::size_t times)
{
    return waitUntil([&] {
        const Texts all = heard();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), senderAndText)) >= times;
    });
}

void MulticastStation::beginToHearNumbers(int count)
{
    _process.begin(
        [](const std::string& argument) {
            const int wanted = std::stoi(argument);
            return std::string(waitUntil([&] { return host->numbersHeard >= wanted; }) ? "yes" : "no");
        },
        std::to_string(count));
}

bool MulticastStation::heardNumbers()
{
    return _process.answer() == "yes";
}

int MulticastStation::numbersHeard(const Texts& senders, int times)
{
    return std::stoi(_process.run(
        [](const std::string& argument) {
            Texts all = linesOf(argument);
            const unsigned int wanted = static_cast<unsigned int>(std::stoul(all.back()));
            all.pop_back();
            return std::to_string(host->count(all, wanted));
        },
        joined(senders) + std::to_string(times)));
}

Texts MulticastStation::warnings()
{
    return linesOf(_process.run([](const std::string&) {
        std::string text;
        const std::vector<LogMessage> messages = host->log.messages();
        for (; host->warningsTold < messages.size(); ++host->warningsTold) {
            const std::string& line = messages[host->warningsTold].text;
            text += line + (line.ends_with("\n") ? "" : "\n");
        }
        return text;
    }));
}

int MulticastStation::wakeUp()
{
    return std::stoi(_process.run(
        [](const std::string&) { return std::to_string(host->endReceiver([] { host->socket.wakeUp(); })); }));
}

int MulticastStation::close()
{
    return std::stoi(_process.run(
        [](const std::string&) { return std::to_string(host->endReceiver([] { host->socket.close(); })); }));
}

int MulticastStation::receive()
{
    return std::stoi(_process.run([](const std::string&) {
        char buffer[128];
        return std::to_string(host->socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr));
    }));
}

std::string MulticastStation::printed()
{
    return _process.run([](const std::string&) { return host->printed.text(); });
}

int MulticastStation::end()
{
    _process.run([](const std::string&) {
        host.reset();
        return std::string();
    });
    return _process.end();
}
