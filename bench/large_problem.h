// Operators of the size that users have, for whole runs that are timed.
#ifndef VES_BENCH_LARGE_PROBLEM_H
#define VES_BENCH_LARGE_PROBLEM_H

#include <mpi.h>

#include <memory>
#include <string>
#include <vector>

namespace VesBench {

/// An eigenproblem in double or complex double precision, its rows distributed over a communicator.
/// Blocks are local rows, column-major; x and y point to numbers of the problem's type.
class LargeProblem {
public:
  virtual ~LargeProblem() = default;

  virtual int LocalRows() const = 0;
  virtual int FirstRow() const = 0; ///< number of this process's first row
  virtual long long Order() const = 0;
  virtual bool IsComplex() const = 0;
  virtual bool IsGeneralized() const = 0;

  virtual void ApplyA(const void* x, void* y, int nCols, int ld) = 0;
  virtual void ApplyB(const void* x, void* y, int nCols, int ld) = 0;
  virtual void ApplyT(const void* x, void* y, int nCols, int ld) = 0;

  /// The same in single precision, on blocks of float or complex float.
  virtual void ApplyLowA(const void* x, void* y, int nCols, int ld) = 0;
  virtual void ApplyLowB(const void* x, void* y, int nCols, int ld) = 0;
  virtual void ApplyLowT(const void* x, void* y, int nCols, int ld) = 0;

  /// How much of the guess row i gets: smooth vectors make better guesses than noise.
  virtual double Weight(int localRow) const = 0;

  /// The lowest values by a closed form; none where there is no such form.
  virtual std::vector<double> Exact(int count) const = 0;
};

/// Seven-point Dirichlet Laplacian (6, -1) on size^3 points, planes dealt out; most values are
/// multiple. T: six steps of a Chebyshev iteration for the inverse on [upper / 30, upper].
std::unique_ptr<LargeProblem> MakeLaplacian(int size, MPI_Comm comm);

/// Stiffness and mass matrix of bilinear elements on size^2 inner points of the unit square. T: the
/// exact inverse of the five-point Laplacian by sine transforms. On one process.
std::unique_ptr<LargeProblem> MakeElements(int size, MPI_Comm comm);

/// Plane waves of a silicon supercell of 2 x 2 x 2 cubic cells at a general wave vector, cut-off in
/// Ry: kinetic energy and a local potential by FFT. T: the inverse of the kinetic energy plus 1 Ry.
std::unique_ptr<LargeProblem> MakePlaneWaves(double cutoff, MPI_Comm comm);

/// By name: laplacian, elements or plane-waves. Throws std::runtime_error for any other.
std::unique_ptr<LargeProblem> MakeLargeProblem(const std::string& name, double size, MPI_Comm comm);

} // namespace VesBench

#endif
