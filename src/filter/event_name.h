#ifndef OSTREL_FILTER_EVENT_NAME_H
#define OSTREL_FILTER_EVENT_NAME_H

#include <cstddef>

#include "filter/port_messages.h"

namespace ostrel {

// Characters of a device-form name with the terminator that the driver may have had no room for.
constexpr std::size_t DEVICE_NAME_CAPACITY = 513;

// Copies the name out of the message and terminates it whatever the message holds.
void CopyDeviceName(const EventMessage& message, wchar_t (&name)[DEVICE_NAME_CAPACITY]);

// Ends the name of a written file at its last ':', where the driver says that it carries a stream suffix. A
// driver that says so of a name without one loses everything behind the drive letter.
void CutStreamSuffix(const EventMessage& message, wchar_t* name);

}  // namespace ostrel

#endif
