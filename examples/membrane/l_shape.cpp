#include "l_shape.h"

#include <algorithm>
#include <cstdio>

LShape::LShape(int squaresPerUnit, MPI_Comm comm) : perUnit_(squaresPerUnit), comm_(comm) {
  int rank, size;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  const int lines = 2 * perUnit_ - 1;
  if (size > lines) { // a process without rows is never called, and its neighbours would wait
    std::fprintf(stderr, "%d processes for %d lines of nodes\n", size, lines);
    MPI_Abort(comm, 1);
  }
  first_ = 1 + lines * rank / size;
  last_ = 1 + lines * (rank + 1) / size;
  below_ = rank > 0 ? rank - 1 : MPI_PROC_NULL;
  above_ = rank + 1 < size ? rank + 1 : MPI_PROC_NULL;
  for (int line = first_; line < last_; ++line)
    nodes_ += Width(line);
}

// A line begins with a node of the boundary.
void LShape::Spread(const double* x, double* firstLine) const {
  for (int line = first_; line < last_; ++line, firstLine += Pitch()) {
    std::copy_n(x, Width(line), firstLine + 1);
    x += Width(line);
  }
}

std::vector<double> LShape::WithNeighbours(const double* x) const {
  const int pitch = Pitch(), lines = last_ - first_;
  std::vector<double> grid(static_cast<std::size_t>((lines + 2) * pitch));
  double *own = grid.data() + pitch, *end = own + lines * pitch;
  Spread(x, own);
  MPI_Sendrecv(end - pitch, pitch, MPI_DOUBLE, above_, 0, grid.data(), pitch, MPI_DOUBLE, below_, 0,
               comm_, MPI_STATUS_IGNORE);
  MPI_Sendrecv(own, pitch, MPI_DOUBLE, below_, 1, end, pitch, MPI_DOUBLE, above_, 1, comm_,
               MPI_STATUS_IGNORE);
  return grid;
}

std::vector<double> LShape::Whole(const double* x) const {
  std::vector<double> own(static_cast<std::size_t>(Pitch() * Pitch())), all(own.size());
  Spread(x, own.data() + first_ * Pitch());
  MPI_Reduce(own.data(), all.data(), Pitch() * Pitch(), MPI_DOUBLE, MPI_SUM, 0, comm_);
  return all;
}

void LShape::Multiply(const double* x, double* y, double node, double nearest,
                      double diagonal) const {
  const std::vector<double> grid = WithNeighbours(x);
  for (int line = first_; line < last_; ++line) {
    const double* here = grid.data() + (line - first_ + 1) * Pitch();
    const double *below = here - Pitch(), *above = here + Pitch();
    for (int i = 1; i <= Width(line); ++i)
      *y++ = node * here[i] + nearest * (here[i - 1] + here[i + 1] + below[i] + above[i]) +
             diagonal * (below[i - 1] + below[i + 1] + above[i - 1] + above[i + 1]);
  }
}
