#ifndef OSTREL_HELPER_DIGEST_H
#define OSTREL_HELPER_DIGEST_H

#include <windows.h>
// Needs windows.h before it.
#include <bcrypt.h>

#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>

#include "util/unique_handle.h"

namespace ostrel::helper {

class DigestError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A digest that grows with its input, by the platform's cryptography. Its calls throw DigestError.
class Digest {
 public:
  // `algorithm` as the platform names it, such as BCRYPT_SHA256_ALGORITHM.
  explicit Digest(const wchar_t* algorithm);

  void Add(std::span<const std::byte> bytes);

  // In lower-case hexadecimal digits. Nothing can be added after.
  std::wstring Finish();

 private:
  struct AlgorithmPolicy {
    using Handle = BCRYPT_ALG_HANDLE;
    static Handle Invalid() noexcept { return nullptr; }
    static void Close(Handle algorithm) noexcept { BCryptCloseAlgorithmProvider(algorithm, 0); }
  };
  struct HashPolicy {
    using Handle = BCRYPT_HASH_HANDLE;
    static Handle Invalid() noexcept { return nullptr; }
    static void Close(Handle hash) noexcept { BCryptDestroyHash(hash); }
  };

  UniqueHandle<AlgorithmPolicy> algorithm_;
  UniqueHandle<HashPolicy> hash_;
};

}  // namespace ostrel::helper

#endif
