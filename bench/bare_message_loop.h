#ifndef OSTREL_BENCH_BARE_MESSAGE_LOOP_H
#define OSTREL_BENCH_BARE_MESSAGE_LOOP_H

#include <windows.h>

namespace ostrel::bench {

// The platform calls that handling one event message takes, and nothing else: nothing is kept. Ends with the
// unload notice.
void RunBareMessageLoop(HANDLE port);

}  // namespace ostrel::bench

#endif
