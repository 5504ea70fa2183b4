// Chance that can be had again.
#ifndef SOAK_DICE_H
#define SOAK_DICE_H

#include <cstdint>
#include <random>
#include <string>

/// Random numbers from a seed. One thread at a time, not locked.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : _engine(seed) {}

    /// @return 0 to `limit` - 1
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(_engine() % limit); }
    /// @return `least` to `most`
    unsigned int between(unsigned int least, unsigned int most) { return least + below(most - least + 1); }
    bool oneIn(unsigned int chances) { return below(chances) == 0; }
    /// @return the seed of other dice
    std::uint64_t seed() { return _engine(); }

    std::string bytes(std::size_t size)
    {
        std::string text(size, '\0');
        for (char& byte : text)
            byte = static_cast<char>(_engine());
        return text;
    }

private:
    std::mt19937_64 _engine;
};

#endif
