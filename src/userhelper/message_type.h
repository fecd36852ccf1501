#ifndef OSTREL_USERHELPER_MESSAGE_TYPE_H
#define OSTREL_USERHELPER_MESSAGE_TYPE_H

#include <cstdint>

namespace ostrel {

// What a request asks for; its response carries the same number.
enum MessageType : std::uint32_t {
  MESSAGE_TAB_TITLES = 0,
  MESSAGE_META_DATA = 1,
  MESSAGE_AUTO_PROXY_CONFIG_URL = 2,
  MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN = 3,
};

}  // namespace ostrel

#endif
