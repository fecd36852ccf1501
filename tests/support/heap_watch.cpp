#include "support/heap_watch.h"

#include <atomic>
#include <cstdlib>

namespace ostrel::test {

namespace {

std::atomic<DWORD> watchedThread{0};
std::atomic<int> allocations{0};
std::atomic<int> untilRefusal{0};
std::atomic<bool> hasRefused{false};

// Not called by name: this program's own imports may be the ones that are rewritten.
decltype(&std::malloc) originalMalloc = nullptr;
decltype(&std::calloc) originalCalloc = nullptr;
decltype(&std::realloc) originalRealloc = nullptr;

template <typename Function>
void* Replace(Function& original, HMODULE module, const char* name, Function replacement) {
  original = reinterpret_cast<Function>(ImportPatch::Imported(module, name));
  return reinterpret_cast<void*>(replacement);
}

// Counts, and tells whether this is a thread of interest.
bool Watch() {
  if (GetCurrentThreadId() != watchedThread) return false;
  ++allocations;
  return true;
}

void* Malloc(std::size_t size) {
  if (Watch() && untilRefusal > 0 && --untilRefusal == 0) {
    hasRefused = true;
    return nullptr;
  }
  return originalMalloc(size);
}

void* Calloc(std::size_t count, std::size_t size) {
  Watch();
  return originalCalloc(count, size);
}

void* Realloc(void* block, std::size_t size) {
  Watch();
  return originalRealloc(block, size);
}

}  // namespace

HeapWatch::HeapWatch(HMODULE module, DWORD threadId)
    : malloc_(module, "malloc", Replace(originalMalloc, module, "malloc", &Malloc)),
      calloc_(module, "calloc", Replace(originalCalloc, module, "calloc", &Calloc)),
      realloc_(module, "realloc", Replace(originalRealloc, module, "realloc", &Realloc)) {
  Begin();
  watchedThread = threadId;
}

HeapWatch::~HeapWatch() {
  watchedThread = 0;
}

void HeapWatch::Begin(int refused) {
  allocations = 0;
  untilRefusal = refused;
  hasRefused = false;
}

int HeapWatch::Count() {
  return allocations;
}

bool HeapWatch::HasRefused() {
  return hasRefused;
}

}  // namespace ostrel::test
