#include "run_model.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace VesTools {
namespace {

/// Operations of the eigenvectors of order N over N^3: 4/3 to a tridiagonal matrix, up to 4/3 for
/// that by division, 2 back.
constexpr double operationsOfEigenvectors = 14.0 / 3.0;

double BytesOf(const RunShape& shape) {
  return shape.isComplex ? 16 : 8;
}

/// The widths that the formulas of docs/theory.md are in.
struct Widths {
  double x, l, k, b;    ///< active, locked, both, a sub-block
  double images;        ///< that are updated with vectors: themselves and those under A and B
  double gram;          ///< X^H B X over x^2 and rows: without B half of it is its mirror image
  double full;          ///< full steps of PPCG an iteration
  double look, t;       ///< 1 where T or B call for a look for NaN, and where there is a T; else 0
  double real, integer; ///< sizes in numbers of the scalar type

  explicit Widths(const RunShape& shape)
      : x(shape.active), l(shape.locked), k(shape.locked + shape.active),
        b(std::min(shape.block, shape.active)), images(shape.hasB ? 3 : 2),
        gram(shape.hasB ? 2 : 1), full(1 / shape.period), look(shape.hasT || shape.hasB ? 1 : 0),
        t(shape.hasT ? 1 : 0), real(8 / BytesOf(shape)), integer(sizeof(int) / BytesOf(shape)) {}
};

/// Of an iteration: sizes in numbers, operations and columns moved a row.
struct Formulas {
  std::vector<Collective> reductions, broadcasts; ///< in their order
  double operations, columnsMoved;
  std::vector<DenseProblem> dense;
};

void Append(const std::vector<Collective>& more, std::vector<Collective>& to) {
  to.insert(to.end(), more.begin(), more.end());
}

void Add(const Formulas& more, Formulas& to) {
  Append(more.reductions, to.reductions);
  Append(more.broadcasts, to.broadcasts);
  to.operations += more.operations;
  to.columnsMoved += more.columnsMoved;
}

Formulas OfLobpcg(const Widths& w) {
  const double x = w.x, before = w.l + 2 * x, v = 3 * x, m = w.images;
  return {{{"lengths of W", 1, x + w.look},
           {"W against all before it", 1, before * x},
           {"W in itself", 1, x * x},
           {"P, and V with W, in A", 1, 2 * v * x},
           {"lengths of X", 1, x},
           {"norms of R", 1, x}},
          {{"factors of W and P", 2, x * x},
           {"coefficients", 1, v * v},
           {"values", 1, v},
           {"verdicts", 3, w.integer},
           {"error of lengths", 1, w.real}},
          2 * m * before * x + (w.gram + m - 1) * x * x + 2 * (x + v) * x + 4 * m * v * x,
          m * (before + 13 * x) + 18 * x,
          {{1, v}}};
}

/// With a second pass allowed errors are measured, and found small enough.
Formulas OfLobpcgErrors(const Widths& w) {
  const double x = w.x, before = w.l + 2 * x;
  return {{{"errors of W against all before it", 2, before * x},
           {"error of W in itself", 1, x * x},
           {"error of P", 1, x * x}},
          {{"errors", 6, w.real}},
          4 * before * x + w.gram * x * x,
          2 * before + 3 * x,
          {}};
}

Formulas OfPpcg(const Widths& w) {
  const double x = w.x, k = w.k, b = w.b, m = w.images, s = 3 * b, blocks = std::ceil(x / b);
  const double active = 2 * x + (1 - w.full) * 2 * x + w.full * 2 * m * x + (w.gram + m) * x;
  const double onX = 2 * k * (1 + m) + 2 * k * m;
  const double inBlocks = b * (2 * m + (w.gram + m) + (w.gram + m - 1)) + 4 * s + 10 * m * b;
  return {{{"X in A", 1 - w.full, x * x},
           {"X in A and in itself", w.full, k * (k + x)},
           {"norms of R", 1, x},
           {"P against X, lengths of T R", 1, (k + w.t) * x},
           {"P in itself, W against X", 1, (b + k) * x + 1},
           {"W against P", 1, b * x},
           {"W in itself", 1, b * x},
           {"small problems", 1, s * s * blocks},
           {"X in itself", 1, x * x}},
          {{"norms of R", 1, x * w.real},
           {"factors of P and W", 2, b * x},
           {"coefficients of sub-blocks", 1, s * s * blocks},
           {"values of sub-blocks", 1, s * blocks},
           {"verdicts of sub-blocks", 3, w.integer * blocks},
           {"factor of X", 1, x * x},
           {"verdicts", 2, w.integer},
           {"errors of lengths and of M", 2 + w.full, w.real},
           {"coefficients of a full step", w.full, x * x},
           {"values of a full step", w.full, x}},
          (active + onX + inBlocks) * x + w.full * w.gram * k * k,
          m * 2 * k + (24 * m + 30) * x,
          {{blocks, s}, {w.full, x}}};
}

Formulas OfPpcgErrors(const Widths& w) {
  const double x = w.x, k = w.k, b = w.b;
  return {{{"errors of P and W against X", 2, k * x},
           {"errors in sub-blocks", 6, b * x},
           {"error of X", 1, x * x}},
          {{"errors", 3, w.real}},
          (4 * k + w.gram * x + 8 * b + 2 * w.gram * b) * x,
          2 * k + 14 * x,
          {}};
}

Formulas FormulasOf(const RunShape& shape) {
  const bool isPpcg = shape.solver == VES_PPCG;
  const Widths widths(shape);
  Formulas all = isPpcg ? OfPpcg(widths) : OfLobpcg(widths);
  if (shape.passes > 1) Add(isPpcg ? OfPpcgErrors(widths) : OfLobpcgErrors(widths), all);
  if (shape.hasT || shape.hasB) Add({{}, {{"a look for NaN", 1, widths.integer}}, 0, 0, {}}, all);
  if (shape.hasT && isPpcg) Add({{}, {}, 0, widths.x, {}}, all);
  return all;
}

/// Of a message that reaches all processes.
double Steps(int processes) {
  return std::ceil(std::log2(processes));
}

} // namespace

CollectiveSums SumsOf(const std::vector<Collective>& collectives) {
  CollectiveSums sums;
  for (const Collective& one : collectives) {
    sums.count += one.count;
    sums.bytes += one.count * one.bytes;
  }
  return sums;
}

double Counts::DenseOperations() const {
  double sum = 0.0;
  for (const DenseProblem& problem : dense)
    sum += problem.count * std::pow(problem.order, 3);
  return sum * operationsOfOne * operationsOfEigenvectors;
}

Counts CountsOf(const RunShape& shape) {
  Formulas formulas = FormulasOf(shape);
  const double bytes = BytesOf(shape), operations = shape.isComplex ? 4 : 1;
  for (auto* const list : {&formulas.reductions, &formulas.broadcasts})
    for (Collective& one : *list)
      one.bytes *= bytes;
  return {shape.active,
          operations * formulas.operations * shape.order,
          bytes * formulas.columnsMoved * shape.order,
          operations,
          std::move(formulas.dense),
          std::move(formulas.reductions),
          std::move(formulas.broadcasts)};
}

void Cost::Add(const Cost& other, double weight) {
  operators += weight * other.operators;
  products += weight * other.products;
  dense += weight * other.dense;
  collectives += weight * other.collectives;
}

double SecondsOfCollective(double bytes, const Machine& machine, int processes) {
  if (processes < 2) return 0.0;
  const double steps = Steps(processes), seconds = bytes / machine.bandwidth;
  const double others = 1.0 - 1.0 / processes;
  return std::min(steps * (machine.latency + seconds),
                  2 * steps * machine.latency + 2 * others * seconds);
}

Cost CostOf(const RunShape& shape, const Machine& machine, int processes) {
  const Counts counts = CountsOf(shape);
  Cost cost;
  cost.operators = counts.columns * shape.order / processes * machine.row;
  cost.products =
      std::max(counts.operations / machine.flops, counts.bytesMoved / machine.memory) / processes;
  cost.dense = counts.DenseOperations() / machine.dense;
  for (const auto* const list : {&counts.reductions, &counts.broadcasts})
    for (const Collective& one : *list)
      cost.collectives += one.count * SecondsOfCollective(one.bytes, machine, processes);
  return cost;
}

Cost MeanCostOf(const std::vector<RunShape>& course, const Machine& machine, int processes) {
  Cost mean;
  for (const RunShape& shape : course)
    mean.Add(CostOf(shape, machine, processes), 1.0 / static_cast<double>(course.size()));
  return mean;
}

const std::vector<int>& ForecastProcesses() {
  static const std::vector<int> all = [] {
    constexpr int most = 10000;
    std::vector<int> numbers;
    for (int p = 1; p < most; p *= 2)
      numbers.push_back(p);
    numbers.push_back(most);
    return numbers;
  }();
  return all;
}

} // namespace VesTools
