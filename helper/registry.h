#ifndef OSTREL_HELPER_REGISTRY_H
#define OSTREL_HELPER_REGISTRY_H

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ostrel::helper {

enum class RegistryRoot { CurrentUser, LocalMachine, Users };

class RegistryError : public std::runtime_error {
 public:
  RegistryError(const std::wstring& key, long errorCode)
      : std::runtime_error("the registry cannot be read"), key_(key), errorCode_(errorCode) {}

  const std::wstring& Key() const noexcept { return key_; }
  long ErrorCode() const noexcept { return errorCode_; }

 private:
  std::wstring key_;
  long errorCode_;
};

// The part of the registry that tells who is signed in where. What is not there is no error; what cannot be
// read is a RegistryError.
class Registry {
 public:
  virtual ~Registry() = default;

  virtual bool HasKey(RegistryRoot root, const std::wstring& key) const = 0;

  // The text in a value, references to environment variables replaced; nothing when key or value is missing,
  // the value is no text, or it is empty.
  virtual std::optional<std::wstring> Text(RegistryRoot root, const std::wstring& key,
                                           const std::wstring& value) const = 0;

  // Names of the keys directly below, sorted; none when the key is missing.
  virtual std::vector<std::wstring> SubkeyNames(RegistryRoot root, const std::wstring& key) const = 0;
};

}  // namespace ostrel::helper

#endif
