#include "filter/event_name.h"

#include <cwchar>

#include "cache/event_records.h"

namespace ostrel {

void CopyDeviceName(const EventMessage& message, wchar_t (&name)[DEVICE_NAME_CAPACITY]) {
  std::size_t length = 0;
  for (; length < DEVICE_NAME_CAPACITY - 1 && message.fileName[length] != u'\0'; ++length) {
    name[length] = static_cast<wchar_t>(message.fileName[length]);
  }
  name[length] = L'\0';
}

void CutStreamSuffix(const EventMessage& message, wchar_t* name) {
  if (message.eventType != FILE_EVENT_WRITE || message.streamFlag != 0) return;
  wchar_t* const colon = std::wcsrchr(name, L':');
  if (colon != nullptr) *colon = L'\0';
}

}  // namespace ostrel
