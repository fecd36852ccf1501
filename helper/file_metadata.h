#ifndef OSTREL_HELPER_FILE_METADATA_H
#define OSTREL_HELPER_FILE_METADATA_H

#include <chrono>
#include <string>

#include "user_session.h"

namespace ostrel::helper {

// Digests and size of a file, which stays as usable for everybody else as if nobody read it. The extra text
// is the path at which the file really lies: drive letters of shares, junctions and symbolic links resolved;
// empty when the file system does not tell. A file that cannot be read to its end within `patience` counts as
// one that cannot be read.
MetadataAnswer ReadFileMetadata(const std::wstring& path, std::chrono::milliseconds patience);

}  // namespace ostrel::helper

#endif
