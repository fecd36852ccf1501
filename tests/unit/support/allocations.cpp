#include "support/allocations.h"

#include <cstdlib>
#include <new>

namespace {

struct {
  bool isOn = false;
  std::size_t bytes = 0;
  std::size_t blocks = 0;
  std::size_t refused = 0;
} counted;

void* Allocate(std::size_t size) {
  if (counted.isOn) {
    counted.bytes += size;
    if (++counted.blocks == counted.refused) throw std::bad_alloc();
  }
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

void* operator new(std::size_t size) {
  return Allocate(size);
}

void* operator new[](std::size_t size) {
  return Allocate(size);
}

// Kept out of line: seen through, they let the compiler take each deletion for a mismatched one.
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}

[[gnu::noinline]] void operator delete[](void* block) noexcept {
  std::free(block);
}

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}

namespace ostrel::test {

Allocations::Allocations(std::size_t refused) {
  counted = {true, 0, 0, refused};
}

Allocations::~Allocations() {
  counted.isOn = false;
}

std::size_t Allocations::Bytes() const {
  return counted.bytes;
}

bool Allocations::HasRefused() const {
  return counted.refused != 0 && counted.blocks >= counted.refused;
}

}  // namespace ostrel::test
