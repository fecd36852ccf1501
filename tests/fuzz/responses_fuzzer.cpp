// Any units as the user helper's answer to each of the four questions: no reader throws or keeps more than
// the answer holds, and an answer that it takes reads the same when it is written again.
#include <algorithm>
#include <sstream>
#include <string>

#include "fuzzer.h"
#include "userhelper/response_messages.h"

namespace {

using namespace ostrel;
using ostrel_test::Promise;

constexpr std::size_t LONGEST_TITLE = 1024;

template <typename Response>
Response Read(const std::wstring& text) {
  Response response(L"9f3a");
  std::wistringstream stream(text);
  response.Deserialize(stream);
  return response;
}

template <typename Response>
Response ReadAgain(const Response& response) {
  std::wostringstream stream;
  response.Serialize(stream);
  Response again = Read<Response>(stream.str());
  Promise(again.isValid, "what was read is written so that it can be read");
  Promise(again.messageType == response.messageType && again.responseCode == response.responseCode,
          "the head stays the same");
  return again;
}

void CheckTitles(const std::wstring& text) {
  const auto response = Read<ResponseMessageTabTitles>(text);
  std::size_t units = 0;
  for (const std::wstring& title : response.titles) {
    Promise(!title.empty() && title.size() <= LONGEST_TITLE, "a title has 1 to 1024 units");
    units += title.size();
  }
  Promise(units <= text.size() + LONGEST_TITLE, "only one title can be longer than the text");
  if (response.isValid) Promise(ReadAgain(response).titles == response.titles, "titles stay the same");
}

void CheckMetaData(const std::wstring& text) {
  const auto response = Read<ResponseMessageMetaData>(text);
  Promise(response.sha256Hex.size() + response.md5Hex.size() + response.extraText.size() <= text.size(),
          "texts hold no more than the text");
  if (!response.isValid) return;
  Promise(response.sha256Hex.size() == 64 && response.md5Hex.size() == 32, "digests have their length");
  Promise(response.extraText.size() == response.extraLength, "the extra text has the length that it names");
  const auto again = ReadAgain(response);
  Promise(again.sha256Hex == response.sha256Hex && again.md5Hex == response.md5Hex &&
              again.fileSize == response.fileSize && again.extraText == response.extraText,
          "metadata stay the same");
}

void CheckProxy(const std::wstring& text) {
  const auto response = Read<ResponseMessageAutoProxyConfigUrl>(text);
  Promise(response.url.size() <= text.size(), "a URL holds no more than the text");
  if (response.isValid) Promise(ReadAgain(response).url == response.url, "a URL stays the same");
}

void CheckCloudLogin(const std::wstring& text) {
  const auto response = Read<ResponseMessageCloudStorageProviderLogin>(text);
  Promise(response.login.size() <= text.size(), "a login holds no more than the text");
  if (response.isValid) Promise(ReadAgain(response).login == response.login, "a login stays the same");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::wstring text(size, L'\0');
  std::copy_n(data, size, text.begin());
  // The first unit says which of them goes on; the others stop there.
  CheckTitles(text);
  CheckMetaData(text);
  CheckProxy(text);
  CheckCloudLogin(text);
  return 0;
}
