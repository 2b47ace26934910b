// The routines behind the wrappers are tested by the blocks and components that call them.
#include "support/scalars.h"

#include <vector>

using namespace VesTest;

namespace {

template <typename Scalar>
struct MathKernelTest : testing::Test {};
TYPED_TEST_SUITE(MathKernelTest, AllScalars);

/// Also the self-test of how the provider returns complex values.
TYPED_TEST(MathKernelTest, DotConjugatesItsFirstOperand) {
  const int count = 4, one = 1, two = 2;
  std::vector<TypeParam> x, y;
  TypeParam expected = 0;
  for (int i = 0; i < count * two; ++i) {
    x.push_back(HashedNumber<TypeParam>(i, 0));
    y.push_back(HashedNumber<TypeParam>(i, 1));
    if (i % two == 0) expected += Conj(x.back()) * HashedNumber<TypeParam>(i / two, 1);
  }
  const TypeParam dot = Ves::MathKernel<TypeParam>::Dot(&count, x.data(), &two, y.data(), &one);
  EXPECT_LE(std::abs(dot - expected), 9 * eps<TypeParam>);
  const TypeParam square = Ves::MathKernel<TypeParam>::Dot(&count, x.data(), &one, x.data(), &one);
  EXPECT_TRUE(std::real(square) > 0 && std::imag(square) == 0);
}

} // namespace
