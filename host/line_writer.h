#ifndef OSTREL_HOST_LINE_WRITER_H
#define OSTREL_HOST_LINE_WRITER_H

#include <mutex>
#include <string>

namespace ostrel::host {

// Writes whole lines to a handle that it does not own, at once and unbuffered. Safe for several threads.
class LineWriter {
 public:
  explicit LineWriter(void* output) : output_(output) {}

  // Adds the line end. False when the line could not be written whole.
  bool Write(std::string line);

 private:
  void* output_;
  std::mutex mutex_;
};

}  // namespace ostrel::host

#endif
