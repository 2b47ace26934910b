// The operator that hands local rows to a routine of the caller, and its placeholder.
#include "data/matrix_shell.h"
#include "support/scalars.h"

#include <tuple>

using namespace VesTest;

namespace {

using Call = std::tuple<void*, void*, int, int, int>;

void Record(void* calls, void* x, void* y, int nRows, int nCols, int ld) {
  static_cast<std::vector<Call>*>(calls)->emplace_back(x, y, nRows, nCols, ld);
}

TEST(MatrixShellTest, ChecksInTheirOrderAndCalls) {
  const auto odd = static_cast<VesVectorType>(2), dense = VES_VECTOR_DENSE;
  std::vector<Call> calls;
  double storage[20] = {};
  Ves::MatrixShell<double> set, unset;
  set.SetShellMatVec(&Record);
  set.SetShellData(&calls);
  // x has 3 rows and a leading dimension of 5; the arguments are those of y.
  const auto apply = [&](const auto& op, MPI_Comm comm, int nRows, int nCols, int ld, auto kind,
                         double* values) -> int {
    Ves::VectorDense<double> x(world, self, 3, nCols, 5), y(comm, self, nRows, nCols, ld);
    x.SetValues(storage + 10);
    y.SetValues(values);
    y.storageType = kind;
    return op.Apply(x, y);
  };
  EXPECT_EQ(apply(VesMatrixEmpty(), self, 1, 2, 4, odd, nullptr), 0) << "placeholder";
  EXPECT_EQ(apply(unset, world, 2, 2, 5, odd, nullptr), -1) << "other rows";
  EXPECT_EQ(apply(set, self, 3, 2, 5, odd, storage), -1) << "another communicator";
  EXPECT_EQ(apply(unset, world, 3, 2, 5, odd, nullptr), 0) << "no routine, before the kinds";
  EXPECT_EQ(apply(set, world, 3, 0, 5, odd, nullptr), 0) << "no columns, before the kinds";
  EXPECT_EQ(apply(set, world, 3, 2, 5, odd, nullptr), -4) << "not dense";
  EXPECT_EQ(apply(set, world, 3, 2, 4, dense, nullptr), -7) << "no values";
  EXPECT_EQ(apply(set, world, 3, 2, 4, dense, storage), -1) << "another leading dimension";
  EXPECT_EQ(apply(set, world, 3, 2, 5, dense, storage), 0);
  EXPECT_EQ(calls, std::vector<Call>{Call(storage + 10, storage, 3, 2, 5)});
  const Ves::VectorDense<double> noRows(world, self, 0, 2, 5);
  Ves::VectorDense<double> y(world, self, 0, 2, 1);
  for (const bool isCalledEverywhere : {false, true}) {
    set.isCalledEverywhere = isCalledEverywhere;
    EXPECT_EQ(set.Apply(noRows, y), VES_GOOD);
    EXPECT_EQ(calls.size(), isCalledEverywhere ? 2U : 1U) << "without rows";
  }
}

} // namespace
