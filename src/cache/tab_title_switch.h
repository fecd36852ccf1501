#ifndef OSTREL_CACHE_TAB_TITLE_SWITCH_H
#define OSTREL_CACHE_TAB_TITLE_SWITCH_H

#include "cache/read_event_cache.h"

namespace ostrel {

// Switches tab title capture in the caches of uploads and downloads together. Any thread may call; each cache
// is switched under its own lock.
class TabTitleSwitch {
 public:
  TabTitleSwitch(ReadEventCache& uploads, ReadEventCache& downloads);

  void Enable();
  void Disable();

 private:
  ReadEventCache& uploads_;
  ReadEventCache& downloads_;
};

}  // namespace ostrel

#endif
