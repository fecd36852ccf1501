#ifndef OSTREL_TESTS_SUPPORT_SCRATCH_KEY_H
#define OSTREL_TESTS_SUPPORT_SCRATCH_KEY_H

#include <windows.h>

#include <string>

namespace ostrel::test {

// A key of this user's registry that a test fills, gone with everything below it at the end. Throws when
// there is one that no test has made, so that nobody's own settings are lost.
class ScratchKey {
 public:
  explicit ScratchKey(std::wstring path);
  ScratchKey(const ScratchKey&) = delete;
  ScratchKey& operator=(const ScratchKey&) = delete;
  ~ScratchKey();

  // In the key below it of that name, which is made if need be; in the key itself without a name.
  void Set(const std::wstring& subkey, const std::wstring& value, const std::wstring& text);

 private:
  std::wstring path_;
};

}  // namespace ostrel::test

#endif
