#ifndef OSTREL_NETWORK_DRIVER_SERVICE_H
#define OSTREL_NETWORK_DRIVER_SERVICE_H

namespace ostrel {

// Starts the network driver's service, stopping it first. Does not wait for it to run. For whoever reads the
// driver's records; loading only stops the service.
bool StartNetworkDriverService();

// Asks the network driver's service to stop, whatever state it is in. Does not wait for it to end.
bool StopNetworkDriverService();

}  // namespace ostrel

#endif
