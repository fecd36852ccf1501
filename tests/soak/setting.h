#ifndef OSTREL_TESTS_SOAK_SETTING_H
#define OSTREL_TESTS_SOAK_SETTING_H

#include <cstdint>
#include <cstdlib>

namespace ostrel::test {

// The number in an environment variable, or another where it is not set.
inline std::uint64_t Setting(const char* name, std::uint64_t otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

}  // namespace ostrel::test

#endif
