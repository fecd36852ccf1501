#ifndef OSTREL_HELPER_CLOUD_LOGIN_H
#define OSTREL_HELPER_CLOUD_LOGIN_H

#include <string>

#include "registry.h"
#include "user_session.h"

namespace ostrel::helper {

// Finds the account with which a cloud storage client is signed in, from what the clients leave in the
// registry: docs/helper-protocol.md has the whole decision table. `provider` is OneDrive, OneDrive Personal,
// OneDrive Business, OneDrive for Business or iCloud, whatever its case and its blanks. Throws RegistryError.
TextAnswer FindCloudLogin(const Registry& registry, const std::wstring& provider,
                          const std::wstring& homeDirectory);

}  // namespace ostrel::helper

#endif
