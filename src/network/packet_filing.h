#ifndef OSTREL_NETWORK_PACKET_FILING_H
#define OSTREL_NETWORK_PACKET_FILING_H

#include "network/network_event_cache.h"
#include "network/packet_messages.h"

namespace ostrel {

// Adds what the driver reports to the streams of the process, in the cache of the record's direction.
// Whatever the driver sends is filed as it is, unknown IP versions and negative ports among it. Throws only
// when memory is short.
void FilePacket(const PacketRecord& record, const wchar_t* processName, NetworkEventCache& uploads,
                NetworkEventCache& downloads);

}  // namespace ostrel

#endif
