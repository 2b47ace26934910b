#ifndef VES_TOOLS_PARALLEL_H
#define VES_TOOLS_PARALLEL_H

#include "error.h"

#include <mpi.h>

#include <string>

namespace VesTools {

int Rank(MPI_Comm comm);
int Size(MPI_Comm comm);

/// Collective reductions of one number.
long long Sum(long long value, MPI_Comm comm);
double Sum(double value, MPI_Comm comm);
double Largest(double value, MPI_Comm comm);

/// A text of process 0, on all processes. Collective.
std::string Broadcast(const std::string& text, MPI_Comm comm);

/// Throws Error on all processes when some process has a complaint: that of the first one that has.
/// Collective.
void AgreeOn(const std::string& complaint, ExitCode code, MPI_Comm comm);

} // namespace VesTools

#endif
