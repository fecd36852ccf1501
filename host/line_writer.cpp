#include "line_writer.h"

#include <windows.h>

#include <algorithm>
#include <string_view>

namespace ostrel::host {

bool LineWriter::Write(std::string line) {
  line += '\n';
  const std::lock_guard lock(mutex_);
  std::string_view rest = line;
  while (!rest.empty()) {
    const auto length = static_cast<DWORD>(std::min<std::size_t>(rest.size(), MAXDWORD));
    DWORD written = 0;
    if (!WriteFile(output_, rest.data(), length, &written, nullptr) || written == 0) return false;
    rest.remove_prefix(written);
  }
  return true;
}

}  // namespace ostrel::host
