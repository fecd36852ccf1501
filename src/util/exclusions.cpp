#include <algorithm>

#include "util/ostrel_filter_lib_util.h"
#include "util/text.h"

bool OstrelFilterLibUtil::ExcludeBasedOnExtension(wchar_t* fileName, std::vector<std::wstring> extensions) {
  return ostrel::EndsWithAnyIgnoringAsciiCase(fileName, extensions);
}

bool OstrelFilterLibUtil::ExcludeBasedOnProcess(wchar_t* processName, std::vector<std::wstring> processes) {
  return std::none_of(processes.begin(), processes.end(), [processName](const std::wstring& process) {
    return ostrel::EqualsIgnoringAsciiCase(processName, process);
  });
}
