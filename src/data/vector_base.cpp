#include "vector_base.h"

bool VesVectorBase::CompareDims(const VesVectorBase& other) const {
  return scalarType == other.scalarType && comm == other.comm && auxComm == other.auxComm &&
         nRows == other.nRows && nCols == other.nCols;
}
