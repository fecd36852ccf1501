#include <string>
#include <string_view>

#include "util/name_capacity.h"
#include "util/ostrel_filter_lib_util.h"
#include "util/text.h"

// \Device\Mup\server\share\file becomes \\server\share\file: whatever the first two components are, they go.
void OstrelFilterLibUtil::ConvertNetworkDriveFileName(wchar_t* source, wchar_t* destination) {
  const std::wstring_view name(source);
  std::size_t backslash = name.find(L'\\');
  for (int i = 0; i < 2 && backslash != std::wstring_view::npos; ++i)
    backslash = name.find(L'\\', backslash + 1);
  if (backslash == std::wstring_view::npos) {
    ConvertOtherFileName(source, destination);
    return;
  }
  destination[0] = L'\\';
  destination[1] = L'\\';
  ostrel::CopyBounded(name.substr(backslash + 1), destination + 2, ostrel::NAME_CAPACITY - 2);
}

void OstrelFilterLibUtil::ConvertOtherFileName(wchar_t* source, wchar_t* destination) {
  ostrel::CopyBounded(source, destination, ostrel::NAME_CAPACITY);
}
