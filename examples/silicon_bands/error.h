#ifndef SILICON_ERROR_H
#define SILICON_ERROR_H

#include <stdexcept>

namespace silicon {

/// A failure that every process of the program meets at the same point, so that all of them can
/// leave in order. Anything else that is thrown may have struck one process alone.
class Error : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace silicon

#endif
