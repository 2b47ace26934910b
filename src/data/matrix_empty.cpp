#include "matrix_base.h"

VesReturnCode VesMatrixEmpty::Apply(const VesVectorBase&, VesVectorBase&) const {
  return VES_GOOD;
}
