#ifndef OSTREL_TESTS_CACHE_CACHE_CALLBACKS_H
#define OSTREL_TESTS_CACHE_CACHE_CALLBACKS_H

#include <functional>
#include <string>
#include <vector>

#include "cache/read_event_cache.h"

namespace ostrel_test {

// What the callbacks of a cache do. The callbacks are plain function pointers, so their state cannot belong
// to one test: whoever builds a cache sets all three first.
struct CacheCallbacks {
  std::function<unsigned char(void*, std::wstring&)> user;
  std::function<std::vector<std::wstring>(ostrel::ULong32, const std::wstring&, std::wstring&)> titles;
  std::function<unsigned char(const std::wstring&)> directory;
};

inline CacheCallbacks cacheCallbacks;

inline ostrel::UserLookup userLookup = [](void* process, std::wstring& user) {
  return cacheCallbacks.user(process, user);
};

inline ostrel::TabTitleLookup tabTitleLookup = [](ostrel::ULong32 processId, std::wstring processName,
                                                  std::wstring& status) {
  return cacheCallbacks.titles(processId, processName, status);
};

inline ostrel::DirectoryTest directoryTest = [](std::wstring fileName) {
  return cacheCallbacks.directory(fileName);
};

// Every process has a user, no process has titles, no file is a directory.
inline CacheCallbacks OrdinaryCallbacks() {
  return {[](void*, std::wstring& user) {
            user = L"somebody";
            return static_cast<unsigned char>(1);
          },
          [](ostrel::ULong32, const std::wstring&, std::wstring& status) {
            status = L"TABTITLE_NO_TITLE_FOUND";
            return std::vector<std::wstring>{};
          },
          [](const std::wstring&) { return static_cast<unsigned char>(0); }};
}

}  // namespace ostrel_test

#endif
