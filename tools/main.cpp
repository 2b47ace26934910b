#include "bench.h"
#include "check.h"
#include "convert.h"
#include "error.h"
#include "forecast.h"
#include "hints.h"
#include "info.h"
#include "kernels.h"
#include "options.h"
#include "output_files.h"
#include "parallel.h"
#include "report.h"
#include "run.h"

#include <mpi.h>
#include <ves.hpp>

#include <csignal>
#include <exception>
#include <iostream>
#include <new>

namespace {

using namespace VesTools;

int Solve(const Options& options, const Kernels& kernels, std::ostream& out, MPI_Comm comm) {
  ProbeOutput(options, comm);
  // A reader of the head that has gone must not end the run, whose files are still to come.
  const auto ofPipe = std::signal(SIGPIPE, SIG_IGN);
  const RunResult result = RunWith(options, comm, [&](const RunResult& head) {
    if (options.output.isQuiet) return;
    PrintHead(out, head);
    out.flush();
  });
  std::signal(SIGPIPE, ofPipe);
  // Before the report, whose reader may have gone, but without an end to the run by a failure.
  const std::string complaint = Rank(comm) == 0 ? WriteFiles(result, options) : "";
  if (!options.output.isQuiet) {
    PrintReport(out, result);
    PrintAdvice(out, kernels);
    PrintHints(out, result, options);
  }
  out.flush();
  AgreeOn(complaint, exitInput, comm);
  return result.IsAccepted() ? exitGood : exitNotConverged;
}

int Obey(const Options& options, const Kernels& kernels, std::ostream& out, MPI_Comm comm) {
  switch (options.command) {
  case Command::solve:
    return Solve(options, kernels, out, comm);
  case Command::convert:
    ConvertMatrix(options, out, comm);
    return exitGood;
  case Command::check:
    return CheckResult(options.result, out, comm) ? exitGood : exitNotConverged;
  case Command::bench:
    return (options.forecast.isAsked ? ForecastSolvers : CompareSolvers)(options, out, comm)
               ? exitGood
               : exitNotConverged;
  case Command::info:
    if (options.showsKernels)
      out << kernels.inUse << "\n";
    else
      PrintInfo(out, kernels, comm);
  }
  return exitGood;
}

int Run(int argc, char** argv, const Kernels& kernels) {
  const MPI_Comm comm = MPI_COMM_WORLD;
  const bool speaks = Rank(comm) == 0;
  std::ostream silence(nullptr);
  std::ostream& out = speaks ? std::cout : silence;
  std::ostream& err = speaks ? std::cerr : silence;
  try {
    Options options;
    const auto parsed = ParseOptions(argc, argv, options, out, err);
    const int code = parsed ? *parsed : Obey(options, kernels, out, comm);
    if (!speaks || out.flush()) return code;
    err << "ves: the standard output cannot be written" << std::endl;
    return exitInput;
  } catch (const Error& error) {
    err << "ves: " << error.what() << std::endl;
    return error.Code();
  } catch (const ves::Error& error) { // the checks of the library refuse on all processes
    err << "ves: " << error.what() << std::endl;
    return exitInternal;
  } catch (const std::exception& error) {
    // It may have struck this process alone: the others would wait for it for ever.
    const bool isMemory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    std::cerr << "ves: process " << Rank(comm) << ": "
              << (isMemory ? "there is not enough memory" : error.what()) << std::endl;
    MPI_Abort(comm, exitInternal);
    return exitInternal;
  }
}

} // namespace

int main(int argc, char** argv) {
  const VesTools::Kernels kernels = VesTools::ChooseKernels(argv);
  int level = MPI_THREAD_SINGLE; // threads share work, but only this one calls MPI
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &level);
  const int code = Run(argc, argv, kernels);
  MPI_Finalize();
  return code;
}
