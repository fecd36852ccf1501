#ifndef OSTREL_DETECT_DISK_EVENT_WORKER_H
#define OSTREL_DETECT_DISK_EVENT_WORKER_H

#include "cache/read_event_cache.h"
#include "cache/sent_event_cache.h"
#include "detect/file_event_reporter.h"
#include "network/network_event_cache.h"

namespace ostrel {

// Where the disk event worker finds what is due.
struct DetectionSources {
  ReadEventCache& uploads;
  ReadEventCache& downloads;
  ReadEventCache& cloudDrive;
  NetworkEventCache& uploadStreams;
  NetworkEventCache& downloadStreams;
  SentEventCache& sentEvents;
};

// One pass takes every event that has gone quiet out of the caches and reports it.
class DiskEventWorker {
 public:
  DiskEventWorker(DetectionSources sources, FileEventReporter& reporter);

  // `now` in milliseconds since 1970. Downloads come before uploads, so that a file that was downloaded and
  // then read is not reported as an upload too. A report that throws, as when memory is short or the host's
  // callback does, is lost; the others of the pass are not.
  void RunPass(unsigned long long now);

 private:
  void ReportDownloads(unsigned long long now);
  void ReportUploads(unsigned long long now);
  void ReportCloudDriveEvents(unsigned long long now);

  DetectionSources sources_;
  FileEventReporter& reporter_;
};

}  // namespace ostrel

#endif
