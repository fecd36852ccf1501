#include "support/heap_watch.h"

#include <atomic>
#include <cstdlib>

#include "support/failure_ledger.h"

namespace ostrel::test {

namespace {

std::atomic<DWORD> watchedThread{0};
std::atomic<int> allocations{0};
std::atomic<int> heldBlocks{0};
std::atomic<long> moduleBlocks{0};
std::atomic<int> untilRefusal{0};
std::atomic<bool> hasRefused{false};

// Not called by name: this program's own imports may be the ones that are rewritten.
decltype(&std::malloc) originalMalloc = nullptr;
decltype(&std::calloc) originalCalloc = nullptr;
decltype(&std::realloc) originalRealloc = nullptr;
decltype(&std::free) originalFree = nullptr;

template <typename Function>
void* Replace(Function& original, HMODULE module, const char* name, Function replacement) {
  original = reinterpret_cast<Function>(ImportPatch::Imported(module, name));
  return reinterpret_cast<void*>(replacement);
}

bool IsWatched() {
  return GetCurrentThreadId() == watchedThread;
}

// What the ledger itself takes from the heap does not count.
void EnterRefusal(const char* function) {
  const DWORD thread = watchedThread.exchange(0);
  FailureLedger::OfThisProgram().Failed(function, ERROR_NOT_ENOUGH_MEMORY);
  watchedThread = thread;
}

// True when the caller is to get no memory.
bool IsRefused(const char* function) {
  if (!IsWatched()) return false;
  ++allocations;
  if (untilRefusal == 0 || --untilRefusal != 0) return false;
  hasRefused = true;
  EnterRefusal(function);
  return true;
}

void Gave(const void* block) {
  if (block == nullptr) return;
  ++moduleBlocks;
  if (IsWatched()) ++heldBlocks;
}

void* Malloc(std::size_t size) {
  if (IsRefused("malloc")) return nullptr;
  void* const block = originalMalloc(size);
  Gave(block);
  return block;
}

void* Calloc(std::size_t count, std::size_t size) {
  if (IsRefused("calloc")) return nullptr;
  void* const block = originalCalloc(count, size);
  Gave(block);
  return block;
}

void* Realloc(void* block, std::size_t size) {
  if (IsRefused("realloc")) return nullptr;
  void* const moved = originalRealloc(block, size);
  if (block == nullptr) Gave(moved);
  return moved;
}

void Free(void* block) {
  if (block != nullptr) {
    --moduleBlocks;
    if (IsWatched()) --heldBlocks;
  }
  originalFree(block);
}

}  // namespace

HeapWatch::HeapWatch(HMODULE module, DWORD threadId)
    : malloc_(module, "malloc", Replace(originalMalloc, module, "malloc", &Malloc)),
      calloc_(module, "calloc", Replace(originalCalloc, module, "calloc", &Calloc)),
      realloc_(module, "realloc", Replace(originalRealloc, module, "realloc", &Realloc)),
      free_(module, "free", Replace(originalFree, module, "free", &Free)) {
  Begin();
  moduleBlocks = 0;
  watchedThread = threadId;
}

HeapWatch::~HeapWatch() {
  watchedThread = 0;
}

void HeapWatch::Begin(int refused) {
  allocations = 0;
  heldBlocks = 0;
  untilRefusal = refused;
  hasRefused = false;
}

int HeapWatch::Count() {
  return allocations;
}

bool HeapWatch::HasRefused() {
  return hasRefused;
}

int HeapWatch::HeldBlocks() {
  return heldBlocks;
}

long HeapWatch::ModuleBlocks() {
  return moduleBlocks;
}

}  // namespace ostrel::test
