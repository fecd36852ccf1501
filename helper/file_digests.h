#ifndef OSTREL_HELPER_FILE_DIGESTS_H
#define OSTREL_HELPER_FILE_DIGESTS_H

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace ostrel::helper {

class FileReadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct FileDigests {
  std::wstring sha256Hex;
  std::wstring md5Hex;
  std::uint64_t size = 0;  // bytes that went into them
};

// Reads an open file once from its beginning, at most `longest` bytes of it, so that a file that somebody
// keeps writing to comes to an end. Two threads share the work of reading and of both digests. Throws
// FileReadError, also at the deadline, and DigestError.
FileDigests DigestFile(HANDLE file, std::uint64_t longest, std::chrono::steady_clock::time_point deadline);

}  // namespace ostrel::helper

#endif
