#ifndef OSTREL_TESTS_FUZZ_FUZZER_H
#define OSTREL_TESTS_FUZZ_FUZZER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// The name and the form that libFuzzer looks for.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace ostrel_test {

// Ends the program where a sanitizer would: a fuzzer keeps the input that led here.
inline void Promise(bool isKept, const char* promise) {
  if (isKept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

}  // namespace ostrel_test

#endif
