#include "digest.h"

#include <cstdint>
#include <vector>

namespace ostrel::helper {

namespace {

void Check(NTSTATUS status, const char* call) {
  if (status < 0) throw DigestError(std::string(call) + " failed");
}

}  // namespace

Digest::Digest(const wchar_t* algorithm) {
  BCRYPT_ALG_HANDLE provider = nullptr;
  Check(BCryptOpenAlgorithmProvider(&provider, algorithm, nullptr, 0), "BCryptOpenAlgorithmProvider");
  algorithm_.Reset(provider);
  BCRYPT_HASH_HANDLE hash = nullptr;
  Check(BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0), "BCryptCreateHash");
  hash_.Reset(hash);
}

void Digest::Add(std::span<const std::byte> bytes) {
  // The call only reads, though it does not say so.
  auto* input = reinterpret_cast<UCHAR*>(const_cast<std::byte*>(bytes.data()));
  Check(BCryptHashData(hash_.Get(), input, static_cast<ULONG>(bytes.size()), 0), "BCryptHashData");
}

std::wstring Digest::Finish() {
  DWORD length = 0;
  ULONG written = 0;
  Check(BCryptGetProperty(hash_.Get(), BCRYPT_HASH_LENGTH, reinterpret_cast<UCHAR*>(&length), sizeof(length),
                          &written, 0),
        "BCryptGetProperty");
  std::vector<std::uint8_t> value(length);
  Check(BCryptFinishHash(hash_.Get(), value.data(), length, 0), "BCryptFinishHash");
  std::wstring text;
  for (const std::uint8_t byte : value) {
    text += L"0123456789abcdef"[byte >> 4U];
    text += L"0123456789abcdef"[byte & 0xFU];
  }
  return text;
}

}  // namespace ostrel::helper
