#ifndef OSTREL_USERHELPER_PROC_UTIL_EXCEPTION_H
#define OSTREL_USERHELPER_PROC_UTIL_EXCEPTION_H

#include <exception>

namespace ostrel {

// The user helper cannot be launched or reached. Ends every request where it began; the status says more.
class ProcUtilException : public std::exception {
 public:
  const char* what() const noexcept override { return "A ProcUtil exception occurred"; }
};

}  // namespace ostrel

#endif
