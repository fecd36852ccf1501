#include "cache/tab_title_switch.h"

#include "log/log.h"

namespace ostrel {

TabTitleSwitch::TabTitleSwitch(ReadEventCache& uploads, ReadEventCache& downloads)
    : uploads_(uploads), downloads_(downloads) {}

void TabTitleSwitch::Enable() {
  Log(LOG_NOTABLE, L"Turning on tab title capture.");
  uploads_.EnableTabTitleCapture();
  downloads_.EnableTabTitleCapture();
}

void TabTitleSwitch::Disable() {
  Log(LOG_NOTABLE, L"Turning off tab title capture.");
  uploads_.DisableTabTitleCapture();
  downloads_.DisableTabTitleCapture();
}

}  // namespace ostrel
