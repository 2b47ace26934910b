#include "blacs_kernel.h"

#include "fortran.h"

namespace Ves {

int BlacsKernel::DefaultContext() {
  const int noContext = -1, systemContext = 0;
  int value = -1;
  blacs_get_(&noContext, &systemContext, &value);
  return value;
}

void BlacsKernel::GridMap(int& context, const int* map, int ldMap, int nprow, int npcol) {
  blacs_gridmap_(&context, map, &ldMap, &nprow, &npcol);
}

void BlacsKernel::MakeRepeatable(int context) {
  const int repeatableTopologies = 15, yes = 1;
  blacs_set_(&context, &repeatableTopologies, &yes);
}

void BlacsKernel::GridInfo(int context, int& nprow, int& npcol, int& myrow, int& mycol) {
  blacs_gridinfo_(&context, &nprow, &npcol, &myrow, &mycol);
}

void BlacsKernel::GridExit(int context) {
  blacs_gridexit_(&context);
}

int BlacsKernel::Numroc(int n, int nb, int iproc, int source, int nprocs) {
  return numroc_(&n, &nb, &iproc, &source, &nprocs);
}

void BlacsKernel::DescInit(int* desc, int m, int n, int mb, int nb, int rsrc, int csrc, int context,
                           int lld, int& info) {
  descinit_(desc, &m, &n, &mb, &nb, &rsrc, &csrc, &context, &lld, &info);
}

} // namespace Ves
