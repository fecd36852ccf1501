#ifndef OSTREL_HOST_CALL_ERRORS_H
#define OSTREL_HOST_CALL_ERRORS_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace ostrel::host {

// Collects the error lines that one call of the library writes. They come on the thread that made the call,
// so what the library's own threads have to say meanwhile is left out.
class CallErrors {
 public:
  // To be called on the thread that calls the library, before the call.
  void Begin();

  // From the log callback, on any thread.
  void Note(std::uint32_t level, const std::string& line);

  std::vector<std::string> Take();

 private:
  std::mutex mutex_;
  std::uint32_t callingThread_ = 0;
  std::vector<std::string> lines_;
};

}  // namespace ostrel::host

#endif
