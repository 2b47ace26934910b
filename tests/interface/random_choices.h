// What sequences of random calls are made of: choices by bytes, and the judgement of answers.
#ifndef VES_TESTS_INTERFACE_RANDOM_CHOICES_H
#define VES_TESTS_INTERFACE_RANDOM_CHOICES_H

#include <ves.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace VesTest {

class RandomChoices {
public:
  using Complain = void (*)(const std::string& what);

  explicit RandomChoices(Complain complain) : m_complain(complain) {}
  RandomChoices(const RandomChoices&) = delete;
  RandomChoices& operator=(const RandomChoices&) = delete;

  long calls = 0;

protected:
  using Codes = std::vector<VesReturnCode>;
  static constexpr VesReturnCode none = VES_ERR_NULL_POINTER, bad = VES_ERR_INVALID_VALUE,
                                 unsupported = VES_ERR_UNSUPPORTED, mismatch = VES_ERR_MISMATCH,
                                 incompatible = VES_ERR_INCOMPATIBLE, good = VES_GOOD;

  // ---------------------------------------------------------------- choices

  int Byte() { return m_at == m_end ? 0 : *m_at++; }
  int Below(int n) { return Byte() % n; }
  bool OneIn(int n) { return Below(n) == n - 1; }
  int AnyCode() { return Below(8) - 2; }
  int AnyInt() {
    constexpr int values[] = {0, 1, 2, 3, 4, 7, 12, -1, 11000, 400000000, INT_MAX, INT_MIN};
    const int choice = Byte();
    return choice < 160 ? choice % 13 : values[choice % 12];
  }
  double AnyDouble() {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const double values[] = {1e-6, 0.01,   0.5,   0.0,      1.0,
                             -1.0, 1e-300, 1e300, infinity, std::nan("")};
    return Any(values);
  }
  template <typename Pool>
  auto Any(Pool& pool) -> decltype(pool[0]) {
    return pool[static_cast<std::size_t>(Below(static_cast<int>(std::size(pool))))];
  }

  // ---------------------------------------------------------------- judgement

  /// The first code is that of a missing handle or pointer, and not listed again unless there are
  /// other causes for it.
  VesReturnCode Judge(const char* call, VesReturnCode code, bool isMissing,
                      const Codes& documented) {
    ++calls;
    bool isListed = isMissing && code == documented.front();
    for (std::size_t i = 1; i < documented.size() && !isMissing; ++i)
      isListed = isListed || code == documented[i];
    if (!isListed)
      m_complain(std::string(call) + " returned " + std::to_string(code) +
                 (isMissing ? " for something missing" : ""));
    return code;
  }
  void Require(bool holds, const char* what) {
    if (!holds) m_complain(what);
  }

  const std::uint8_t *m_at = nullptr, *m_end = nullptr; ///< bytes that are left

private:
  Complain m_complain;
};

/// Judges a call in a member of such a class.
#define VES_JUDGE(call, isMissing, ...) Judge(#call, call, isMissing, {__VA_ARGS__})

} // namespace VesTest

#endif
