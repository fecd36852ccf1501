#ifndef OSTREL_TESTS_SUPPORT_HEAP_WATCH_H
#define OSTREL_TESTS_SUPPORT_HEAP_WATCH_H

#include <windows.h>

#include "support/import_table.h"

namespace ostrel::test {

// Counts what a module takes from the heap on one thread, and refuses it once if asked to: by malloc, and so
// by operator new, by calloc or by realloc. What the C runtime takes for itself does not count.
//
// One at a time.
class HeapWatch {
 public:
  explicit HeapWatch(HMODULE module, DWORD threadId = GetCurrentThreadId());
  HeapWatch(const HeapWatch&) = delete;
  HeapWatch& operator=(const HeapWatch&) = delete;
  ~HeapWatch();

  // Counts from 0 again. `refused` is the number of the request to refuse, from 1; 0 refuses none.
  static void Begin(int refused = 0);
  static int Count();
  static bool HasRefused();
  // How many blocks more the thread has taken than given back, of whichever thread those were.
  static int HeldBlocks();
  // How many blocks more all threads of the module have taken than given back since the watch began.
  static long ModuleBlocks();

 private:
  ImportPatch malloc_;
  ImportPatch calloc_;
  ImportPatch realloc_;
  ImportPatch free_;
};

}  // namespace ostrel::test

#endif
