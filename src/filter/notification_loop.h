#ifndef OSTREL_FILTER_NOTIFICATION_LOOP_H
#define OSTREL_FILTER_NOTIFICATION_LOOP_H

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cache/irp_cache.h"
#include "cache/read_event_cache.h"
#include "filter/notification_port.h"
#include "filter/port_messages.h"

namespace ostrel {

// Where the notification loop files what it receives. All of it outlives the loop.
struct NotificationTargets {
  ReadEventCache& uploads;
  ReadEventCache& downloads;
  ReadEventCache& cloudDrive;
  IrpCache& irpQueries;
  // For irpQueries: a loop that is late to end and its successor may meet there.
  std::mutex& irpQueriesMutex;
  const std::vector<std::wstring>& ignoredSuffixes;
};

// Receives the minifilter's events from one connection, acknowledges each before anything slow is done with
// it, and files it. Nothing is allocated before the acknowledgement.
class NotificationLoop {
 public:
  NotificationLoop(std::shared_ptr<NotificationPort> port, NotificationTargets targets);

  // Runs until the driver announces its unload or the port's handle becomes invalid.
  void Run();

 private:
  // False when the loop must end.
  bool HandleNextMessage();
  bool ReceiveFailed(HRESULT result);
  void Handle(const EventMessage& message);
  void File(const EventMessage& message, const wchar_t* fileName, HANDLE process, const wchar_t* processName);
  void FileRead(const EventMessage& message, const wchar_t* fileName, HANDLE process,
                const wchar_t* processName);
  void FileWrite(const EventMessage& message, const wchar_t* fileName, HANDLE process,
                 const wchar_t* processName);
  bool IsRealRead(const EventMessage& message, const wchar_t* fileName, const wchar_t* processName);
  void FileNetworkInfoQuery(const EventMessage& message, const wchar_t* fileName, const wchar_t* processName);
  void FileStdInfoQuery(const EventMessage& message, const wchar_t* fileName, const wchar_t* processName);
  void Acknowledge(const EventMessage& message);

  std::shared_ptr<NotificationPort> port_;
  NotificationTargets targets_;
};

// Runs the loop on a thread of its own that nobody waits for. False with the last error when there is no
// thread.
bool StartNotificationThread(std::shared_ptr<NotificationPort> port, const NotificationTargets& targets);

}  // namespace ostrel

#endif
