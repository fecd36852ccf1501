#ifndef OSTREL_DETECT_FILE_EVENT_REPORTER_H
#define OSTREL_DETECT_FILE_EVENT_REPORTER_H

#include "cache/event_records.h"
#include "detect/host_callbacks.h"
#include "network/network_event_cache.h"

namespace ostrel {

// Turns one event into one call of the host, under the report mutex. Without a callback nothing happens, not
// even a log line.
class FileEventReporter {
 public:
  explicit FileEventReporter(HostCallbacks& callbacks);

  // An upload or a download, with the streams of the same process that may have carried it. An upload of
  // which less than 90 per cent of the expected size was read is logged and goes no further. That size is the
  // file's own or, on a network drive, what the user's session says: 0, which anything reaches, when it says
  // nothing.
  void ReportFileEvent(NetworkEventCache& streams, const ReadEventMetaData& event);

  // A cloud-drive event, complete or not, whether its file still exists or not.
  void ReportPcdEvent(const ReadEventMetaData& event);

 private:
  HostCallbacks& callbacks_;
};

}  // namespace ostrel

#endif
