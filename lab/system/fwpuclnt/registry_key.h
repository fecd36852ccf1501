#ifndef OSTREL_LAB_SYSTEM_FWPUCLNT_REGISTRY_KEY_H
#define OSTREL_LAB_SYSTEM_FWPUCLNT_REGISTRY_KEY_H

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "util/unique_handle.h"

namespace ostrel::lab {

// The registry refused; `code` is the system's error code.
struct RegistryError {
  DWORD code = ERROR_SUCCESS;
};

struct RegistryHandlePolicy {
  using Handle = HKEY;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { RegCloseKey(handle); }
};

// One open key. Every function throws a RegistryError when the registry refuses.
class RegistryKey {
 public:
  enum class Kept { Always, UntilRestart };

  // A key below HKEY_LOCAL_MACHINE, or below this one, made when it is missing.
  static RegistryKey CreateForMachine(const wchar_t* path, Kept kept);
  RegistryKey Create(const std::wstring& name, Kept kept) const;
  std::optional<RegistryKey> Open(const std::wstring& name) const;
  void Delete(const std::wstring& name) const;  // with everything below it; a missing one is fine

  std::vector<std::wstring> Names() const;  // of the keys below

  void Set(const wchar_t* name, const std::wstring& text) const;
  void Set(const wchar_t* name, std::uint64_t number) const;
  std::wstring Text(const wchar_t* name) const;     // empty when missing
  std::uint64_t Number(const wchar_t* name) const;  // 0 when missing

 private:
  explicit RegistryKey(HKEY key) : key_(key) {}

  UniqueHandle<RegistryHandlePolicy> key_;
};

}  // namespace ostrel::lab

#endif
