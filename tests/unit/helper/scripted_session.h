#ifndef OSTREL_TESTS_UNIT_HELPER_SCRIPTED_SESSION_H
#define OSTREL_TESTS_UNIT_HELPER_SCRIPTED_SESSION_H

#include <string>
#include <vector>

#include "user_session.h"

namespace ostrel_test {

// A session with the answers of the test's choosing that keeps what it was asked.
class ScriptedSession : public ostrel::helper::UserSession {
 public:
  ostrel::helper::TitlesAnswer titles;
  ostrel::helper::MetadataAnswer metadata;
  ostrel::helper::TextAnswer url;
  ostrel::helper::TextAnswer login;
  std::vector<std::wstring> questions;

  ostrel::helper::TitlesAnswer Titles(std::uint32_t processId, const std::wstring& processName) override {
    questions.push_back(L"titles of " + std::to_wstring(processId) + L" " + processName);
    return titles;
  }
  ostrel::helper::MetadataAnswer Metadata(const std::wstring& filePath) override {
    questions.push_back(L"metadata of " + filePath);
    return metadata;
  }
  ostrel::helper::TextAnswer AutoProxyConfigUrl() override {
    questions.emplace_back(L"proxy");
    return url;
  }
  ostrel::helper::TextAnswer CloudLogin(const std::wstring& provider,
                                        const std::wstring& homeDirectory) override {
    questions.push_back(L"login of " + provider + L" in " + homeDirectory);
    return login;
  }
};

}  // namespace ostrel_test

#endif
