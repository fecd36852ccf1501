#ifndef OSTREL_HELPER_EXIT_CODE_H
#define OSTREL_HELPER_EXIT_CODE_H

namespace ostrel::helper {

// What --help lists. Nobody waits for the helper, so these are for whoever looks for the reason of a silence.
enum class ExitCode : int {
  Answered = 0,
  Internal = 1,
  Usage = 2,
  PipeNotCreated = 3,
  NobodyCame = 4,
  NoRequest = 5,
  NotDelivered = 6,
  TimeUp = 7,
};

}  // namespace ostrel::helper

#endif
