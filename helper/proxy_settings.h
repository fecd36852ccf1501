#ifndef OSTREL_HELPER_PROXY_SETTINGS_H
#define OSTREL_HELPER_PROXY_SETTINGS_H

#include "user_session.h"

namespace ostrel::helper {

// The proxy script's URL in the Internet settings of the user of this process; empty when they name none.
// Neither the automatic detection of a script nor a fixed proxy makes up for one.
TextAnswer ReadAutoProxyConfigUrl();

}  // namespace ostrel::helper

#endif
