#ifndef OSTREL_HELPER_WINDOWS_REGISTRY_H
#define OSTREL_HELPER_WINDOWS_REGISTRY_H

#include "registry.h"

namespace ostrel::helper {

class WindowsRegistry final : public Registry {
 public:
  bool HasKey(RegistryRoot root, const std::wstring& key) const override;
  std::optional<std::wstring> Text(RegistryRoot root, const std::wstring& key,
                                   const std::wstring& value) const override;
  std::vector<std::wstring> SubkeyNames(RegistryRoot root, const std::wstring& key) const override;
};

}  // namespace ostrel::helper

#endif
