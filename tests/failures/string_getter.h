#ifndef OSTREL_TESTS_FAILURES_STRING_GETTER_H
#define OSTREL_TESTS_FAILURES_STRING_GETTER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "support/failure_ledger.h"
#include "support/import_table.h"
#include "support/library_copy.h"
#include "support/transcript.h"

namespace ostrel::test {

// What a getter left in its two pointers, both of which pointed elsewhere before: result and error.
using Answer = std::pair<std::string, std::string>;

const std::string UNTOUCHED = "(untouched)";

inline Answer Result(const std::string& text) {
  return {text, UNTOUCHED};
}

inline std::string Quoted(const std::string& text) {
  return text.starts_with("(") ? text : "\"" + text + "\"";
}

inline Answer Error(const std::string& text) {
  return {UNTOUCHED, text};
}

inline constexpr const char* GETTERS[] = {"GetCurrentUserName", "GetAllUserDirectories",
                                          "GetAutoProxyConfigUrlForUser", "GetAutoProxyConfigUrlForSystem",
                                          "GetCloudStorageProviderLoginForSystem"};

// Asks one of the getters, that of the cloud login about OneDrive, and gives back what it returned.
inline Answer Ask(const LibraryCopy& library, std::string_view getter) {
  wchar_t elsewhere[] = L"";
  wchar_t* result = elsewhere;
  wchar_t* error = elsewhere;
  if (getter == "GetCloudStorageProviderLoginForSystem") {
    library.Find<void (*)(const wchar_t*, const wchar_t*, wchar_t**, wchar_t**)>(getter.data())(
        L"OneDrive", L"C:\\Users\\ann", &result, &error);
  } else {
    library.Find<void (*)(wchar_t**, wchar_t**)>(getter.data())(&result, &error);
  }
  const auto take = [&](wchar_t* text) -> std::string {
    if (text == elsewhere) return UNTOUCHED;
    if (text == nullptr) return "(null)";
    const std::string taken = Narrow(text);
    library.DeallocStringPointer(&text);
    return taken;
  };
  const Answer answer{take(result), take(error)};
  CameTo(std::string(getter) + ": result " + Quoted(answer.first) + ", error " + Quoted(answer.second));
  return answer;
}

// Refuses the module memory in blocks of some sizes.
class RefusedMemory {
 public:
  RefusedMemory(HMODULE module, std::size_t smallest, std::size_t largest)
      : patch_(module, "malloc", reinterpret_cast<void*>(&Allocate)) {
    smallest_ = smallest;
    largest_ = largest;
    original_ = reinterpret_cast<decltype(original_)>(patch_.Original());
    refusals_ = 0;
  }

  int Refusals() const { return refusals_; }

 private:
  static void* Allocate(std::size_t size) {
    if (size < smallest_ || size > largest_) return original_(size);
    ++refusals_;
    FailureLedger::OfThisProgram().Failed("malloc", ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }

  // The function carries no context.
  static inline std::size_t smallest_;
  static inline std::size_t largest_;
  static inline void* (*original_)(std::size_t);
  static inline int refusals_;

  ImportPatch patch_;
};

constexpr std::size_t STRING_BYTES = 2048 * sizeof(wchar_t);

}  // namespace ostrel::test

#endif
