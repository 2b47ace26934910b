#include "progress.h"

#include <iomanip>
#include <string>

#include <unistd.h>

namespace silicon {

void Progress::Start(std::size_t total) {
  done_ = 0;
  total_ = total;
}

void Progress::Advance(const Levels& levels) {
  ++done_;
  const int digits = static_cast<int>(std::to_string(total_).size());
  out_ << (onTerminal_ ? "\r" : "") << "k point " << std::setw(digits) << done_ << '/' << total_
       << "  iterations " << std::setw(3) << levels.iterations << "  converged " << std::setw(2)
       << levels.converged << '/' << levels.Count();
  if (!onTerminal_ || done_ == total_) out_ << '\n';
  out_ << std::flush;
}

bool OutputIsTerminal() {
  return isatty(STDOUT_FILENO) == 1 && tcgetpgrp(STDOUT_FILENO) >= 0;
}

} // namespace silicon
