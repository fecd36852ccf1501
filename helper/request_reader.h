#ifndef OSTREL_HELPER_REQUEST_READER_H
#define OSTREL_HELPER_REQUEST_READER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ostrel::helper {

// What every request begins with, whatever its version and type.
struct RequestHead {
  std::uint32_t version = 0;
  std::uint32_t messageType = 0;
  std::wstring commandId;
  std::wstring responseId;
};

struct TitlesRequest {
  std::uint32_t processId = 0;
  std::wstring processName;
};

struct CloudLoginRequest {
  std::wstring provider;
  std::wstring homeDirectory;
};

// Reads a request as its writer forms it and nothing else: plain decimal numbers without sign, blank or
// leading zero, and texts of exactly the announced length without a zero unit, up to the very end. An
// announced length is held against what is there before anything is copied. First the head is read, then the
// one body that belongs to its type.
class RequestReader {
 public:
  // `text` must outlive the reader.
  explicit RequestReader(std::wstring_view text) : rest_(text) {}

  // Both identifiers have 1 to 64 units.
  std::optional<RequestHead> ReadHead();

  std::optional<TitlesRequest> ReadTitlesBody();
  std::optional<std::wstring> ReadFilePathBody();
  bool ReadEmptyBody() const;
  std::optional<CloudLoginRequest> ReadCloudLoginBody();

 private:
  std::optional<std::uint32_t> ReadNumber();
  bool ReadComma();
  std::optional<std::wstring> ReadText(std::size_t shortest, std::size_t longest);
  std::optional<std::wstring> ReadIdentifier();
  std::optional<std::wstring> ReadFreeText();
  std::optional<std::wstring> ReadLastText();

  std::wstring_view rest_;
};

}  // namespace ostrel::helper

#endif
