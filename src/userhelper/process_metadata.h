#ifndef OSTREL_USERHELPER_PROCESS_METADATA_H
#define OSTREL_USERHELPER_PROCESS_METADATA_H

#include <string>
#include <vector>

#include "userhelper/response_code.h"
#include "util/export.h"
#include "util/integers.h"

// As windows.h declares it: a window handle points to one.
struct HWND__;

// Finds the title of a process's main window on the desktop that the caller sees; a service sees none. Of
// several windows the first in the system's order wins, and one without a title is passed over.
//
// Nothing is thrown but std::bad_alloc, and not even that for a window's title: without memory for it the
// search ends as if no window had one. Nothing is logged but by OstrelFilterLibUtil's look-up of processes by
// name, which an Edge process needs.
class OSTREL_EXPORT ProcessMetadata {
 public:
  static const wchar_t* const EDGE_PROCESS_NAME;
  static const wchar_t* const ALT_EDGE_PROCESS_NAME;
  static const wchar_t* const APP_FRAME_HOST_NAME;

  // The name may be a path. One that contains, in this very case, a name of the legacy Edge browser makes the
  // process an Edge process. Null is an empty name.
  ProcessMetadata(ostrel::ULong32 processId, const wchar_t* processName);

  // At most one title: that of the process's own main window, else of its parent's; for an Edge process,
  // whose windows belong to ApplicationFrameHost.exe, of that one's.
  //
  // `*code` becomes SUCCESS, TABTITLE_MAIN_WINDOWS_NOT_FOUND when there is no title, or
  // TABTITLE_NOAPP_FRAME_HOST when the process that should have it does not run. A window that loses its
  // title while it is looked at counts with an empty one.
  std::vector<std::wstring> GetTabTitles(ResponseCode* code);

  // Non-zero when the window has no owner and is visible. Takes an HWND and returns a BOOL.
  static int IsMainWindow(HWND__* window);

 private:
  void GetTitleFromEdgeProcess(std::vector<std::wstring>& titles, ResponseCode* code);
  bool GetTitleFromParentId(std::vector<std::wstring>& titles, ResponseCode* code);
  bool GetTitleFromProcessId(ostrel::ULong32 processId, std::vector<std::wstring>& titles,
                             ResponseCode* code);
  void FindMainWindowTitle(ostrel::ULong32 processId, std::vector<std::wstring>& titles);

  ostrel::ULong32 processId_;
  std::wstring processName_;
  bool isEdge_;
  std::vector<std::wstring> frameHostNames_;
};

#endif
