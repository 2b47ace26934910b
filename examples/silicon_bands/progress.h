#ifndef SILICON_PROGRESS_H
#define SILICON_PROGRESS_H

#include "band_solver.h"

#include <ostream>

namespace silicon {

/// Reports every solved k point: on a terminal by one line that is rewritten, else line by line.
class Progress {
public:
  Progress(std::ostream& out, bool onTerminal) : out_(out), onTerminal_(onTerminal) {}

  /// Begins a sequence of k points.
  void Start(std::size_t total);

  /// Reports the next one.
  void Advance(const Levels& levels);

private:
  std::ostream& out_;
  bool onTerminal_;
  std::size_t done_ = 0;
  std::size_t total_ = 0;
};

/// Whether standard output is the terminal that controls this process. The pseudo terminal that an
/// MPI launcher may put in front of its own output is not.
bool OutputIsTerminal();

} // namespace silicon

#endif
