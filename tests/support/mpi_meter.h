/* Counts what this program and its libraries ask of MPI: through the profiling interface they call
   what a program that links mpi_meter.c has here. */
#ifndef VES_TESTS_SUPPORT_MPI_METER_H
#define VES_TESTS_SUPPORT_MPI_METER_H

#include <mpi.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct MpiMeter {
  long long reductions, bytesReduced; /* of MPI_Allreduce on this process */
  int commsMade, commsAlive;          /* communicators made, and not yet freed */
  /* Is told of every call before it is made, where it is set: r reduction to all, b broadcast,
     o reduction to one, w barrier, d, c, s communicator made, f freed. */
  void (*note)(char kind, int count, MPI_Datatype type, MPI_Comm comm);
} MpiMeter;

extern MpiMeter mpiMeter;

#ifdef __cplusplus
}
#endif

#endif
