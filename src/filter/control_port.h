#ifndef OSTREL_FILTER_CONTROL_PORT_H
#define OSTREL_FILTER_CONTROL_PORT_H

#include "filter/port_messages.h"

namespace ostrel {

// Opens the minifilter's control port, sends the message and closes the port. False only when the port cannot
// be opened: a message that the open port refuses is logged and counts as sent.
bool SendToMinifilter(const DetectionMessage& message);

}  // namespace ostrel

#endif
