#ifndef OSTREL_DETECT_UPLOAD_COMPLETENESS_H
#define OSTREL_DETECT_UPLOAD_COMPLETENESS_H

#include <cstdint>

namespace ostrel {

// Whether the bytes read make up an upload: at least 90 per cent of the file, in double precision. A size
// that could not be learned is the largest number and never reached.
constexpr bool IsCompleteUpload(std::uint32_t readSize, std::uint64_t fileSize) {
  return !(static_cast<double>(fileSize) * 0.9 > static_cast<double>(readSize));
}

}  // namespace ostrel

#endif
