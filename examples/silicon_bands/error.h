#ifndef SILICON_ERROR_H
#define SILICON_ERROR_H

#include <mpi.h>

#include <exception>
#include <iostream>
#include <stdexcept>

namespace silicon {

/// A failure that every process of the program meets at the same point, so that all of them can
/// leave in order. Anything else that is thrown may have struck one process alone.
class Error : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Ends all processes for what may have struck this one alone: the others would wait for it for
/// ever.
[[noreturn]] inline void EndAll(const std::exception& error) {
  std::cerr << "silicon_bands: " << error.what() << std::endl;
  MPI_Abort(MPI_COMM_WORLD, 2);
  std::terminate();
}

} // namespace silicon

#endif
