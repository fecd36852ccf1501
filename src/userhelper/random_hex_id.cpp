#include "userhelper/random_hex_id.h"

#include <windows.h>
// Needs windows.h before it.
#include <bcrypt.h>

#include <cstddef>
#include <sstream>

#include "log/log.h"

namespace ostrel {

namespace {

constexpr std::size_t RANDOM_BYTES = 32;

}  // namespace

std::wstring GenerateRandomHexId() {
  // Never released, on purpose: 32 bytes for each identifier.
  auto* const bytes = static_cast<unsigned char*>(HeapAlloc(GetProcessHeap(), 0, RANDOM_BYTES));
  if (bytes == nullptr) {
    Log(LOG_ERROR, L"memory allocation failed");
    return {};
  }
  const NTSTATUS status =
      BCryptGenRandom(nullptr, bytes, static_cast<ULONG>(RANDOM_BYTES), BCRYPT_USE_SYSTEM_PREFERRED_RNG);
  if (status < 0) {
    Log(LOG_ERROR, L"Error 0x%x returned by BCryptGenRandom", status);
    return {};
  }
  std::wostringstream digits;
  // A shorter identifier would be easier to guess.
  digits.exceptions(std::ios_base::badbit);
  digits << std::hex;
  for (std::size_t i = 0; i < RANDOM_BYTES; ++i) digits << static_cast<unsigned>(bytes[i]);
  return digits.str();
}

}  // namespace ostrel
