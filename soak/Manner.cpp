// How the clients of the crowd behave.
#include "Manner.h"

#include <array>

namespace {

using Ending = Manner::Ending;

constexpr std::array<Manner, 9> manners = {{
    // name, share, bytes, chunk, pause, stay, reads, ending
    {"talkative", 40, 200, 20000, 600, 150, 2000, true, Ending::halfClose},
    {"long-lived", 14, 2000, 60000, 300, 400, 30000, true, Ending::halfClose},
    {"one byte at a time", 8, 10, 150, 1, 60, 0, true, Ending::halfClose},
    {"half-closing", 8, 1, 30000, 8000, 0, 0, false, Ending::halfClose},
    {"flooding", 4, 200000, 1500000, 65536, 0, 0, true, Ending::halfClose},
    {"silent", 9, 0, 0, 1, 0, 8000, true, Ending::halfClose},
    {"gone at once", 8, 0, 0, 1, 0, 0, false, Ending::close},
    {"resetting", 7, 0, 4000, 500, 40, 300, true, Ending::reset},
    {"never reading", 2, 4000000, 8000000, 65536, 0, 5000, false, Ending::reset},
}};

constexpr unsigned int sumOfShares()
{
    unsigned int sum = 0;
    for (const Manner& manner : manners)
        sum += manner.share;
    return sum;
}
static_assert(sumOfShares() == 100);

}  // namespace

const Manner& Manner::Any(Dice& dice)
{
    unsigned int place = dice.below(100);
    std::size_t index = 0;
    while (place >= manners[index].share)
        place -= manners[index++].share;
    return manners[index];
}
