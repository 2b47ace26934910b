#ifndef VES_TOOLS_MACHINE_H
#define VES_TOOLS_MACHINE_H

#include "names.h"
#include "run_model.h"

#include <mpi.h>

#include <string>
#include <utility>
#include <vector>

namespace VesTools {

struct MachineConstant {
  const char* name;
  double Machine::*value;
  const char* unit;
};

/// What a machine is described by.
extern const std::vector<MachineConstant> machineConstants;

/// Machines that stand for their kind: round figures of data sheets, not measured ones.
extern const Names<Machine> machines;

/// The machine that the program runs on, in place of a named one.
inline constexpr const char* machineHere = "here";

/// A machine as an option names it: NAME,CONSTANT=VALUE,... where each part may be missing.
struct MachineChoice {
  std::string name = machineHere;
  std::vector<std::pair<double Machine::*, double>> given;

  bool IsHere() const { return name == machineHere; }
  /// The named machine, or this one, with the constants that were given.
  Machine Completed(const Machine& here) const;
};

/// Throws Error for a name or a constant that there is not, and for values that are not above 0.
MachineChoice ParseMachine(const std::string& text);

/// Network, memory and products of this machine while all processes are at it; one process alone
/// finds no network and takes that of the named cluster. Operators and dense problems are left to
/// those who have run some. Collective.
Machine MeasureMachine(MPI_Comm comm);

} // namespace VesTools

#endif
