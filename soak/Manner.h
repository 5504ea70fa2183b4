// How the clients of the crowd behave.
#ifndef SOAK_MANNER_H
#define SOAK_MANNER_H

#include "Dice.h"

/// How a client behaves.
struct Manner {
    enum class Ending {
        halfClose,  ///< It ends its sending, and takes what is still to come.
        close,      ///< It goes, having sent nothing.
        reset       ///< It goes with a reset, whatever is under way.
    };

    const char* name;
    unsigned int share;  ///< How many of a hundred clients are of this kind.
    unsigned int leastBytes;
    unsigned int mostBytes;
    unsigned int chunk;        ///< How many bytes at a time.
    unsigned int mostPauseMs;  ///< How long it waits between two chunks, at most.
    unsigned int mostStayMs;   ///< How long it stays at least, at most.
    bool reads;                ///< Whether it takes its echo before its end.
    Ending ending;

    /// @return the manner of one client
    static const Manner& Any(Dice& dice);
};

#endif
