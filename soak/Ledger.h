// The figures of a run, and what does not add up.
#ifndef SOAK_LEDGER_H
#define SOAK_LEDGER_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

/// What is counted, in the order of the closing table.
enum class Figure : std::size_t {
    rounds,
    connections,
    connectionsCut,
    bytesEchoed,
    streamMoves,
    eventsPosted,
    eventsHandled,
    eventsDiscarded,
    objects,
    objectMoves,
    threads,
    threadsCollected,
    threadsForeign,
    pools,
    poolUnits,
    timerFires,
    pluginLoads,
    fileOperations,
    folders,
    datagrams,
    groupsJoined,
    lookUps,
    socketExchanges,
    logMessages,
    messagesToNobody,
    handOvers,
    libraryWarnings,
    count  // how many there are
};

/// @return what the figure counts, in a word or two
const char* nameOf(Figure figure);

/// Counts what the activities did and had done to them, and collects what does not add up. Any thread.
class Ledger {
public:
    /// @param seed  named in each complaint
    explicit Ledger(std::uint64_t seed);

    void add(Figure figure, std::uint64_t count = 1);
    std::uint64_t total(Figure figure) const;

    /// Says on standard error what does not add up.
    /// @param format  a printf format, followed by its values
    void complain(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Complains unless the two are the same.
    /// @param what  is counted
    /// @return whether they are
    bool same(const char* what, std::uint64_t expected, std::uint64_t actual);
    /// Complains unless it holds.
    /// @param what  is to hold
    /// @return `holds`
    bool check(bool holds, const char* what);
    std::uint64_t complaints() const { return _complaints; }

private:
    const std::uint64_t _seed;
    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Figure::count)> _totals;
    std::atomic<std::uint64_t> _complaints;
};

#endif
