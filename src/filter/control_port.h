#ifndef OSTREL_FILTER_CONTROL_PORT_H
#define OSTREL_FILTER_CONTROL_PORT_H

#include "filter/port_messages.h"
#include "network/remote_address_info.h"

namespace ostrel {

// Opens the minifilter's control port, sends the message and closes the port. While remote address info is
// on, the network driver gets an activity message too. False only when the port cannot be opened: a message
// that the open port refuses is logged and counts as sent.
bool SendToDrivers(const DetectionMessage& message, RemoteAddressInfo& remoteAddressInfo);

}  // namespace ostrel

#endif
