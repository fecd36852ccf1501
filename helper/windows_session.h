#ifndef OSTREL_HELPER_WINDOWS_SESSION_H
#define OSTREL_HELPER_WINDOWS_SESSION_H

#include <chrono>

#include "registry.h"
#include "user_session.h"

namespace ostrel::helper {

// The session in which this process runs.
class WindowsSession final : public UserSession {
 public:
  // `patience` is the time that reading a file may take.
  WindowsSession(const Registry& registry, std::chrono::milliseconds patience)
      : registry_(registry), patience_(patience) {}

  TitlesAnswer Titles(std::uint32_t processId, const std::wstring& processName) override;
  MetadataAnswer Metadata(const std::wstring& filePath) override;
  TextAnswer AutoProxyConfigUrl() override;
  TextAnswer CloudLogin(const std::wstring& provider, const std::wstring& homeDirectory) override;

 private:
  const Registry& registry_;
  const std::chrono::milliseconds patience_;
};

}  // namespace ostrel::helper

#endif
