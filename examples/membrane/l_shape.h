#ifndef MEMBRANE_L_SHAPE_H
#define MEMBRANE_L_SHAPE_H

#include <ves.hpp>

#include <vector>

/// The square (-1, 1) x (-1, 1) without its lower right quarter, cut into small squares. The
/// unknowns are the inner nodes, line by line from below; each process holds some of the lines.
class LShape {
public:
  LShape(int squaresPerUnit, MPI_Comm comm);

  int Nodes() const { return nodes_; }           ///< on this process
  int Pitch() const { return 2 * perUnit_ + 1; } ///< nodes of a line of the whole square

  /// The lines of this process with their zeros, and one line of the neighbours below and above.
  std::vector<double> WithNeighbours(const double* x) const;
  /// All lines of the whole square on process 0.
  std::vector<double> Whole(const double* x) const;
  /// y = S x with the stencil S of a node, its four nearest and its four diagonal neighbours.
  void Multiply(const double* x, double* y, double node, double nearest, double diagonal) const;

private:
  int Width(int line) const { return line <= perUnit_ ? perUnit_ - 1 : 2 * perUnit_ - 1; }
  void Spread(const double* x, double* firstLine) const;

  int perUnit_, first_, last_, nodes_ = 0; // lines first_ to last_ - 1 of the square's
  int below_, above_;                      // neighbours, or MPI_PROC_NULL
  MPI_Comm comm_;
};

/// A bilinear finite element matrix on the shape, for libves to multiply with.
struct ElementMatrix {
  const LShape* shape;
  double node, nearest, diagonal;

  void operator()(ves::View<const double> x, ves::View<double> y) const {
    for (int j = 0; j < x.cols(); ++j)
      shape->Multiply(x.column(j), y.column(j), node, nearest, diagonal);
  }
};

#endif
