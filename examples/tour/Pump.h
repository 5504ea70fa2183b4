// Waiting on the main thread without holding up its loop.
#ifndef TOUR_PUMP_H
#define TOUR_PUMP_H

#include <functional>

/// The main application thread only, outside of its loop. Lets the loop turn until something is done, so that
/// events, timers and streams of this thread are served meanwhile.
/// @param done  asked after each turn
/// @return whether it was done in good time; a tour waits for nothing longer than a few seconds
bool pumpUntil(const std::function<bool()>& done);

#endif
