#ifndef OSTREL_BENCH_COUNTED_MEMORY_H
#define OSTREL_BENCH_COUNTED_MEMORY_H

#include <cstddef>

namespace ostrel::bench {

// Counts what is allocated and not freed while it lives, with what the heap puts in front of each block and
// rounds it up to. Its program's allocation functions are its own. One at a time, on one thread.
class CountedMemory {
 public:
  CountedMemory();
  CountedMemory(const CountedMemory&) = delete;
  CountedMemory& operator=(const CountedMemory&) = delete;
  ~CountedMemory();

  std::size_t Bytes() const;
};

}  // namespace ostrel::bench

#endif
