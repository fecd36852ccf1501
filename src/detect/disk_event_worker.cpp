#include "detect/disk_event_worker.h"

namespace ostrel {

namespace {

// No exception may end the thread, and with it the host's process. False when there was one.
template <typename Step>
bool Guarded(Step step) {
  try {
    step();
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace

DiskEventWorker::DiskEventWorker(DetectionSources sources, FileEventReporter& reporter)
    : sources_(sources), reporter_(reporter) {}

void DiskEventWorker::RunPass(unsigned long long now) {
  // A file read after it was downloaded is no upload: while the downloads cannot be told, neither can the
  // uploads.
  if (Guarded([&] { ReportDownloads(now); })) Guarded([&] { ReportUploads(now); });
  Guarded([&] { ReportCloudDriveEvents(now); });
  Guarded([&] { sources_.downloadStreams.PurgeEvents(now); });
  Guarded([&] { sources_.uploadStreams.PurgeEvents(now); });
}

void DiskEventWorker::ReportDownloads(unsigned long long now) {
  for (const ReadEventMetaData& event : sources_.downloads.GetEvents(now)) {
    Guarded([&] { reporter_.ReportFileEvent(sources_.downloadStreams, event); });
    Guarded([&] {
      sources_.sentEvents.AddEvent(event.GetFileName(), static_cast<long long>(event.GetEndTime()));
    });
  }
}

void DiskEventWorker::ReportUploads(unsigned long long now) {
  for (const ReadEventMetaData& event : sources_.uploads.GetEvents(now)) {
    Guarded([&] {
      if (sources_.sentEvents.EventExists(event.GetFileName(), static_cast<long long>(event.GetEndTime())) !=
          0)
        return;
      reporter_.ReportFileEvent(sources_.uploadStreams, event);
    });
  }
}

void DiskEventWorker::ReportCloudDriveEvents(unsigned long long now) {
  for (const ReadEventMetaData& event : sources_.cloudDrive.GetEvents(now)) {
    Guarded([&] { reporter_.ReportPcdEvent(event); });
  }
}

}  // namespace ostrel
