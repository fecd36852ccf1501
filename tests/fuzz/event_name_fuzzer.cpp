// Any bytes as an event message of the driver: the name is copied and terminated within its bounds, and only
// shortened after.
#include "filter/event_name.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "fuzzer.h"

namespace {

using ostrel::DEVICE_NAME_CAPACITY;
using ostrel::EventMessage;
using ostrel_test::Promise;

std::size_t NameLength(const EventMessage& message) {
  return static_cast<std::size_t>(std::find(std::begin(message.fileName), std::end(message.fileName), u'\0') -
                                  std::begin(message.fileName));
}

void CheckCopy(const EventMessage& message, const std::wstring& name) {
  Promise(name.size() == NameLength(message), "a name ends at its first terminator or with its field");
  Promise(std::equal(name.begin(), name.end(), message.fileName,
                     [](wchar_t copied, char16_t sent) { return copied == static_cast<wchar_t>(sent); }),
          "a name is copied character by character");
}

void CheckCut(const EventMessage& message, const std::wstring& whole, const std::wstring& cut) {
  const bool carriesStream = message.eventType == 1 && message.streamFlag == 0;
  Promise(cut == (carriesStream ? whole.substr(0, whole.rfind(L':')) : whole),
          "a written name with a stream ends at its last colon, and any other stays");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  EventMessage message{};
  std::copy_n(data, std::min(size, sizeof message), reinterpret_cast<std::uint8_t*>(&message));
  wchar_t name[DEVICE_NAME_CAPACITY];
  std::fill(std::begin(name), std::end(name), L'?');
  ostrel::CopyDeviceName(message, name);
  Promise(std::find(std::begin(name), std::end(name), L'\0') != std::end(name), "a name is terminated");
  const std::wstring whole(name);
  CheckCopy(message, whole);
  ostrel::CutStreamSuffix(message, name);
  CheckCut(message, whole, name);
  return 0;
}
