// Activity: log handlers are installed and removed, and threads log meanwhile.
#include "Logs.h"

#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Murn::Logger;

class Collector final : public Murn::LogHandler {
public:
    explicit Collector(const std::string& domain) : LogHandler(domain, Logger::LevelWarning | Logger::LevelMessage)
    {
        Logger::InstallHandler(this);
    }
    ~Collector() { Logger::UninstallHandler(this); }

    void HandleLog(const char* domain, Logger::LogLevel, const char* message) override
    {
        ++(domain == _domain && std::strstr(message, "]drop ") != nullptr ? _fitting : _strange);
    }

    std::atomic<std::uint64_t> _fitting{0};
    std::atomic<std::uint64_t> _strange{0};
};

void logSome(const std::string& domain, unsigned int count)
{
    for (unsigned int number = 0; number < count; ++number) {
        if (number % 2 == 0)
            Logger::Warning(domain.c_str(), "drop %u", number);
        else
            Logger::Message(domain.c_str(), "drop %u of %s", number, domain.c_str());
    }
}

}  // namespace

void Logs::live(Round& round, Dice& dice)
{
    for (; !round.isOver(); round.rest()) {
        std::vector<std::unique_ptr<Collector>> collectors;
        std::vector<std::thread> threads;
        const std::uint64_t each = dice.between(1, 40);
        const unsigned int threadsEach = dice.between(1, 3);
        for (unsigned int number = dice.between(1, 5); number > 0; --number)
            collectors.push_back(std::make_unique<Collector>("soak" + std::to_string(number)));
        const std::string lastDomain = collectors.back()->_domain;
        for (const auto& collector : collectors) {
            for (unsigned int thread = 0; thread < threadsEach; ++thread)
                threads.emplace_back(logSome, collector->_domain, static_cast<unsigned int>(each));
        }
        for (std::thread& thread : threads)
            thread.join();
        for (const auto& collector : collectors) {
            round.ledger().same("messages to a handler", each * threadsEach, collector->_fitting);
            round.ledger().same("messages to the wrong handler", 0, collector->_strange);
            round.ledger().add(Figure::logMessages, collector->_fitting);
        }
        collectors.pop_back();
        const std::uint64_t before = round.ledger().total(Figure::messagesToNobody);
        Logger::Warning(lastDomain.c_str(), "to nobody");
        round.ledger().same("messages without a handler", before + 1, round.ledger().total(Figure::messagesToNobody));
    }
}
