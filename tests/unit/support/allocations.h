#ifndef OSTREL_TESTS_UNIT_SUPPORT_ALLOCATIONS_H
#define OSTREL_TESTS_UNIT_SUPPORT_ALLOCATIONS_H

#include <cstddef>

namespace ostrel::test {

// While it lives, the blocks that this program allocates are counted, and one of them can be refused. For one
// at a time, in a program without other threads; its source file replaces the program's allocation functions.
class Allocations {
 public:
  // `refused` is the place of the allocation that finds no memory, 1 being the first; 0 refuses none.
  explicit Allocations(std::size_t refused = 0);
  Allocations(const Allocations&) = delete;
  Allocations& operator=(const Allocations&) = delete;
  ~Allocations();

  // Bytes allocated so far, each block counted whether or not it was freed again.
  std::size_t Bytes() const;
  bool HasRefused() const;
};

}  // namespace ostrel::test

#endif
