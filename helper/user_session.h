#ifndef OSTREL_HELPER_USER_SESSION_H
#define OSTREL_HELPER_USER_SESSION_H

#include <cstdint>
#include <string>
#include <vector>

#include "userhelper/response_code.h"

namespace ostrel::helper {

struct TitlesAnswer {
  static TitlesAnswer Failed(ResponseCode code) { return {code, {}}; }

  ResponseCode code = ResponseCode::SUCCESS;
  std::vector<std::wstring> titles;
};

struct MetadataAnswer {
  static MetadataAnswer Failed(ResponseCode code) { return {code, {}, {}, 0, {}}; }

  ResponseCode code = ResponseCode::SUCCESS;
  std::wstring sha256Hex;
  std::wstring md5Hex;
  std::uint64_t fileSize = 0;  // bytes
  std::wstring extraText;
};

// With SUCCESS the text is the result, empty for "there is none"; with another code it explains the failure.
struct TextAnswer {
  ResponseCode code = ResponseCode::SUCCESS;
  std::wstring text;
};

// The four questions that only the user's session can answer.
class UserSession {
 public:
  virtual ~UserSession() = default;

  virtual TitlesAnswer Titles(std::uint32_t processId, const std::wstring& processName) = 0;
  virtual MetadataAnswer Metadata(const std::wstring& filePath) = 0;
  virtual TextAnswer AutoProxyConfigUrl() = 0;
  virtual TextAnswer CloudLogin(const std::wstring& provider, const std::wstring& homeDirectory) = 0;
};

}  // namespace ostrel::helper

#endif
