#ifndef VES_TOOLS_OPTIONS_H
#define VES_TOOLS_OPTIONS_H

#include <ves.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace VesTools {

enum class Command { solve, convert, check, bench, info };
enum class Preconditioner { automatic, none, jacobi, ic, shiftInvert, inner };
enum class Precision { automatic, full, mixed };

/// Where A and B come from: files, or a model by its name and sizes.
struct ProblemOptions {
  std::vector<std::string> files; ///< A and perhaps B
  std::string model;
  std::optional<VesScalarType> scalar; ///< by the matrices when not given
};

/// What the library is told; what is not given stays as the library or "auto" has it.
struct SolverOptions {
  std::optional<int> pairs; ///< 6, or the order if that is less
  bool isLargest = false;   ///< the highest pairs in place of the lowest
  std::optional<int> guard; ///< columns behind them, as far as the order goes
  std::optional<int> innerSteps;
  Precision precision = Precision::automatic;
  std::optional<VesSolverType> type;
  double tolerance = 0.0; ///< relative to norms; 0: 1e-8, in single precision 1e-4
  double threshold = 0.0; ///< absolute; 0: by tolerance
  int maxIterations = 1000;
  double timeLimit = 0.0; ///< seconds; 0: none
  std::optional<int> orthoPasses;
  VesConvergeDetectorType detector = VES_RESIDUALS;
  std::optional<VesConvergeDetectorType> lockDetector;
  double lockFactor = 1.0;
  std::optional<VesDenseEigenSolverType> dense;
  VesOrthogonalizerType orthogonalizer = VES_CHOLESKY_QR;
  VesOrthogonalizerType rankRevealer = VES_CHOLESKY_QR;
  VesOrthoProjectorType projector = VES_GRAM_SCHMIDT;
  std::optional<int> batchLimit, ppcgBatch, rrPeriod, softLocking;
  std::optional<double> ppcgLockFactor;
  bool hasSelfCheck = true;
  std::string start;                      ///< file of the guess
  std::string deflate;                    ///< file of columns that vectors are kept orthogonal to
  std::optional<unsigned long long> seed; ///< given where a run shall be repeatable
};

struct PreconditionerOptions {
  Preconditioner kind = Preconditioner::automatic;
  std::optional<double> shift;
};

struct OutputOptions {
  std::string json, vectors, plot;
  std::string rows; ///< of convert
  bool isQuiet = false;
  bool showsProgress = false; ///< in plain lines, wherever the run is
};

/// What bench tells of many processes.
struct ForecastOptions {
  bool isAsked = false;
  std::string machine = "here"; ///< as ParseMachine reads it
  double order = 0.0;           ///< 0: that of the model
};

struct Options {
  Command command = Command::solve;
  ProblemOptions problem;
  SolverOptions solver;
  PreconditionerOptions preconditioner;
  OutputOptions output;
  ForecastOptions forecast;
  std::string result;        ///< file that check judges
  bool showsKernels = false; ///< info: nothing else
};

/// Reads the command line; prints what was asked for or what is wrong.
/// \return the exit code when there is nothing left to do
std::optional<int> ParseOptions(int argc, char** argv, Options& options, std::ostream& out,
                                std::ostream& err);

/// Shows the description of all commands and options, from which the pages about them are made.
void ShowOptions(const std::function<void(CLI::App&)>& show);

} // namespace VesTools

#endif
