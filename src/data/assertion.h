#ifndef VES_DATA_ASSERTION_H
#define VES_DATA_ASSERTION_H

#include <ves.h>

namespace Ves {

/// Writes expression, source, line and signature to standard error and aborts the process.
[[noreturn]] VES_EXPORT void AssertionFailed(const char* expression, const char* file, int line,
                                             const char* function);

inline void AssertGood(VesReturnCode code, const char* expression, const char* file, int line,
                       const char* function) {
  if (code != VES_GOOD) AssertionFailed(expression, file, line, function);
}

inline VesReturnCode AssertGoodOr(VesReturnCode allowed, VesReturnCode code, const char* expression,
                                  const char* file, int line, const char* function) {
  if (code != VES_GOOD && code != allowed) AssertionFailed(expression, file, line, function);
  return code;
}

} // namespace Ves

/// Asserts in every build type that a call which can fail only through a fault of the library
/// succeeds. The call is evaluated once.
#define VES_ASSERT_GOOD(...)                                                                       \
  ::Ves::AssertGood((__VA_ARGS__), "(" #__VA_ARGS__ ") == VES_GOOD", __FILE__, __LINE__,           \
                    __PRETTY_FUNCTION__)

/// The same for a call that may also answer with one other code; yields the code.
#define VES_ASSERT_GOOD_OR(allowed, ...)                                                           \
  ::Ves::AssertGoodOr(allowed, (__VA_ARGS__), "(" #__VA_ARGS__ ") == VES_GOOD", __FILE__,          \
                      __LINE__, __PRETTY_FUNCTION__)

#endif
