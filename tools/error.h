#ifndef VES_TOOLS_ERROR_H
#define VES_TOOLS_ERROR_H

#include <stdexcept>
#include <string>

namespace VesTools {

/// What the program returns to the shell.
enum ExitCode {
  exitGood = 0,         ///< all pairs converged, or the check found nothing wrong
  exitNotConverged = 1, ///< some pair did not converge, or a check failed
  exitUsage = 2,        ///< options that cannot be followed
  exitInput = 3,        ///< a file that cannot be read, written or used
  exitInternal = 4      ///< the library, MPI or memory failed
};

/// A failure that every process meets at the same point, so that all leave in order with one
/// message. Anything else that is thrown may have struck one process alone.
class Error : public std::runtime_error {
public:
  Error(ExitCode code, const std::string& text) : std::runtime_error(text), m_code(code) {}
  ExitCode Code() const { return m_code; }

private:
  ExitCode m_code;
};

} // namespace VesTools

#endif
