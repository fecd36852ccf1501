#ifndef OSTREL_LAB_PLAYER_MINIFILTER_STOP_H
#define OSTREL_LAB_PLAYER_MINIFILTER_STOP_H

namespace ostrel::lab {

// Stops the stand-in minifilter as an administrator would: the driver announces its unload to the host first.
// Returns when it has stopped; throws after a deadline.
void StopMinifilter();

}  // namespace ostrel::lab

#endif
