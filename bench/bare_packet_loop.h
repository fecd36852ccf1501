#ifndef OSTREL_BENCH_BARE_PACKET_LOOP_H
#define OSTREL_BENCH_BARE_PACKET_LOOP_H

#include <windows.h>

#include <cstdint>

namespace ostrel::bench {

// The plainest loop that issues the packet reader's requests and looks up each record's process: nothing is
// kept. Ends when `stop` is signalled and returns the number of records whose process had a name.
std::uint64_t RunBarePacketLoop(HANDLE device, HANDLE stop);

}  // namespace ostrel::bench

#endif
