#include "machine.h"

#include "closest.h"
#include "error.h"
#include "parallel.h"
#include "text_lines.h"

#include <algorithm>
#include <cmath>
#include <limits>

extern "C" void dgemm_(const char*, const char*, const int* m, const int* n, const int* k,
                       const double* alpha, const double* a, const int* lda, const double* b,
                       const int* ldb, const double* beta, double* c, const int* ldc);

namespace VesTools {

const std::vector<MachineConstant> machineConstants = {
    {"latency", &Machine::latency, "s"}, {"bandwidth", &Machine::bandwidth, "B/s"},
    {"memory", &Machine::memory, "B/s"}, {"flops", &Machine::flops, "/s"},
    {"dense", &Machine::dense, "/s"},    {"row", &Machine::row, "s"}};

const Names<Machine> machines = {{"cluster", {2e-6, 1e10, 5e9, 40e9, 2e9, 2e-8}},
                                 {"ethernet", {2e-5, 1.2e9, 5e9, 40e9, 2e9, 2e-8}}};

namespace {

constexpr const char* machineOfNetworks = "cluster";

/// Also the empty ones.
std::vector<std::string> PartsOf(const std::string& text) {
  std::vector<std::string> parts{""};
  for (const char c : text)
    if (c == ',')
      parts.emplace_back();
    else
      parts.back() += c;
  return parts;
}

/// The least seconds of a few calls, the mean of all processes. Collective.
template <typename Call>
double SecondsOf(const Call& call, MPI_Comm comm) {
  double best = std::numeric_limits<double>::infinity();
  for (int i = 0; i < 5; ++i) {
    MPI_Barrier(comm);
    const double start = MPI_Wtime();
    call();
    best = std::min(best, MPI_Wtime() - start);
  }
  return Sum(best, comm) / Size(comm);
}

/// Of products on blocks that are read from memory once, and wide enough for its speed not to
/// matter.
double ProductRate(MPI_Comm comm) {
  constexpr int rows = 20000, cols = 128;
  constexpr double one = 1.0, zero = 0.0;
  const std::vector<double> x(std::size_t{rows} * cols, 0.5);
  std::vector<double> product(std::size_t{cols} * cols);
  const auto multiply = [&] {
    dgemm_("T", "N", &cols, &cols, &rows, &one, x.data(), &rows, x.data(), &rows, &zero,
           product.data(), &cols);
  };
  return 2.0 * rows * cols * cols / SecondsOf(multiply, comm);
}

double MemoryRate(MPI_Comm comm) {
  constexpr std::size_t size = std::size_t{1} << 23;
  const std::vector<double> from(size, 0.5);
  std::vector<double> to(size);
  const auto copy = [&] { std::copy(from.begin(), from.end(), to.begin()); };
  return 2.0 * size * sizeof(double) / SecondsOf(copy, comm);
}

double SecondsOfReduction(std::vector<double>& numbers, MPI_Comm comm) {
  constexpr int calls = 20;
  const auto reduce = [&] {
    for (int i = 0; i < calls; ++i)
      MPI_Allreduce(MPI_IN_PLACE, numbers.data(), static_cast<int>(numbers.size()), MPI_DOUBLE,
                    MPI_SUM, comm);
  };
  return SecondsOf(reduce, comm) / calls;
}

} // namespace

Machine MachineChoice::Completed(const Machine& here) const {
  Machine machine = IsHere() ? here : machines.at(name);
  for (const auto& [constant, value] : given)
    machine.*constant = value;
  return machine;
}

MachineChoice ParseMachine(const std::string& text) {
  MachineChoice choice;
  std::vector<std::string> names{machineHere}, constants;
  for (const auto& machine : machines)
    names.push_back(machine.first);
  for (const MachineConstant& constant : machineConstants)
    constants.push_back(constant.name);
  const auto refuse = [](const std::string& what) { throw Error(exitUsage, "--machine: " + what); };
  bool isFirst = true;
  for (const std::string& part : PartsOf(text)) {
    const std::size_t at = part.find('=');
    const std::string name = part.substr(0, at);
    const auto& known = at == std::string::npos ? names : constants;
    const auto found = std::find(known.begin(), known.end(), name);
    if (found == known.end() || (at == std::string::npos && !isFirst))
      refuse("'" + name + "' is not known there" + DidYouMean(name, known));
    if (at == std::string::npos) {
      choice.name = name;
    } else {
      double value = 0.0;
      if (!ParseNumber(part.substr(at + 1), value) || !(value > 0.0) || std::isinf(value))
        refuse(part + " is not a number above 0");
      const auto index = static_cast<std::size_t>(found - known.begin());
      choice.given.emplace_back(machineConstants[index].value, value);
    }
    isFirst = false;
  }
  return choice;
}

Machine MeasureMachine(MPI_Comm comm) {
  Machine machine = machines.at(machineOfNetworks);
  machine.memory = MemoryRate(comm);
  machine.flops = ProductRate(comm);
  if (Size(comm) == 1) return machine;
  const double steps = std::ceil(std::log2(Size(comm)));
  std::vector<double> one(1), many(std::size_t{1} << 17);
  machine.latency = SecondsOfReduction(one, comm) / steps;
  const double bytes = static_cast<double>(many.size() * sizeof(double));
  machine.bandwidth = 2 * (1 - 1.0 / Size(comm)) * bytes / SecondsOfReduction(many, comm);
  return machine;
}

} // namespace VesTools
