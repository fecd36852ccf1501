#include "counted_memory.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t BLOCK_HEADER = 16;

struct {
  bool isOn = false;
  std::size_t bytes = 0;
} counted;

std::size_t SizeInHeap(void* block) {
  return _msize(block) + BLOCK_HEADER;
}

void* Allocate(std::size_t size) {
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  if (counted.isOn) counted.bytes += SizeInHeap(block);
  return block;
}

void Free(void* block) {
  if (block != nullptr && counted.isOn) counted.bytes -= SizeInHeap(block);
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
  return Allocate(size);
}

void* operator new[](std::size_t size) {
  return Allocate(size);
}

void operator delete(void* block) noexcept {
  Free(block);
}

void operator delete[](void* block) noexcept {
  Free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  Free(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
  Free(block);
}

namespace ostrel::bench {

CountedMemory::CountedMemory() {
  counted.bytes = 0;
  counted.isOn = true;
}

CountedMemory::~CountedMemory() {
  counted.isOn = false;
}

std::size_t CountedMemory::Bytes() const {
  return counted.bytes;
}

}  // namespace ostrel::bench
