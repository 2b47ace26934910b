// Vibrations of an L-shaped membrane: K x = lambda M x in bilinear finite elements, with pictures of
// the lowest modes in membrane_modes.svg.
#include "../handles.h"
#include "l_shape.h"
#include "pictures.h"

#include <cmath>

namespace {

constexpr int perUnit = 32, modes = 6;
constexpr double h = 1.0 / perUnit, pi = 3.14159265358979323846;

// Values of the exact shape, of which finite elements are upper bounds.
constexpr double exact[modes] = {9.6397238440,  15.1972519266, 19.7392088022,
                                 29.5214811142, 31.9126359571, 41.4745098902};

// The third mode is a sine in x and in y, whose value is known for the elements, too.
const double thirdOfElements = 2 * 6 / (h * h) * (1 - std::cos(pi * h)) / (2 + std::cos(pi * h));

bool Agrees(const Block<double>& D) {
  bool good = std::fabs(D.Value(2) - thirdOfElements) < 1e-8;
  for (int j = 0; j < modes; ++j)
    good = good && D.Value(j) > exact[j] && D.Value(j) < 1.01 * exact[j];
  return good;
}

} // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank, converged;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  const LShape shape(perUnit, MPI_COMM_WORLD);
  ElementMatrix stiffness = {&shape, 8.0 / 3, -1.0 / 3, -1.0 / 3};
  ElementMatrix mass = {&shape, 16 * h * h / 36, 4 * h * h / 36, h * h / 36};
  const Operator<double> K(&stiffness, MultiplyElementMatrix), M(&mass, MultiplyElementMatrix);
  Block<double> X(shape.Nodes(), modes), D(modes, 1);
  X.Randomize(static_cast<unsigned>(rank));
  const Solver solver(VES_DOUBLE, VES_LOBPCG);
  Check(VesSolverSetProblemType(solver.handle, VES_PROBLEM_GENERALIZED));
  Check(VesSolverSetMaxIter(solver.handle, 1000));
  Check(VesRunSolver(solver.handle, K.handle, M.handle, nullptr, X.handle, D.handle));
  Check(VesGetSolverConv(solver.handle, &converged));

  std::vector<Mode> pictures;
  for (int j = 0; j < modes; ++j) {
    pictures.push_back({D.Value(j), shape.Whole(X.Column(j))});
    if (rank == 0)
      std::printf("mode %d  computed %10.6f  exact %10.6f\n", j + 1, D.Value(j), exact[j]);
  }
  bool good = converged == modes && Agrees(D);
  if (rank == 0 && !DrawModes("membrane_modes.svg", pictures, shape.Pitch())) {
    std::fprintf(stderr, "membrane_modes.svg cannot be written\n");
    good = false;
  }
  MPI_Finalize();
  return good ? 0 : 1;
}
