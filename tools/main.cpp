#include "bench.h"
#include "check.h"
#include "error.h"
#include "info.h"
#include "options.h"
#include "parallel.h"
#include "plot.h"
#include "report.h"
#include "result_file.h"
#include "run.h"

#include <mpi.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>

namespace {

using namespace VesTools;

// Makes sure that the files can be written before the work for them is done. Collective.
void ProbeOutput(const OutputOptions& output, MPI_Comm comm) {
  std::string complaint;
  for (const std::string& path : {output.json, output.vectors, output.plot}) {
    if (path.empty() || Rank(comm) != 0) continue;
    std::error_code error;
    const bool existed = std::filesystem::exists(path, error);
    if (!std::ofstream(path, std::ios::app)) complaint = path + ": cannot be written";
    if (complaint.empty() && !existed) std::filesystem::remove(path, error);
  }
  AgreeOn(complaint, exitInput, comm);
}

// Collective; process 0 writes.
void WriteFiles(const RunResult& result, const Options& options, MPI_Comm comm) {
  std::string complaint;
  const auto require = [&](bool isGood, const std::string& path) {
    if (!isGood) complaint = path + ": cannot be written";
  };
  if (Rank(comm) == 0) {
    const OutputOptions& output = options.output;
    if (!output.json.empty()) require(WriteResult(output.json, result, options), output.json);
    if (!output.plot.empty()) {
      std::ofstream file(output.plot);
      WritePlot(file, result);
      file.close();
      require(file.good(), output.plot);
    }
  }
  AgreeOn(complaint, exitInput, comm);
}

int Solve(const Options& options, std::ostream& out, MPI_Comm comm) {
  ProbeOutput(options.output, comm);
  const RunResult result = RunWith(options, comm);
  if (!options.output.isQuiet) PrintReport(out, result);
  out.flush();
  WriteFiles(result, options, comm);
  return result.IsAccepted() ? exitGood : exitNotConverged;
}

int Obey(const Options& options, std::ostream& out, MPI_Comm comm) {
  switch (options.command) {
  case Command::solve:
    return Solve(options, out, comm);
  case Command::check:
    return CheckResult(options.result, out, comm) ? exitGood : exitNotConverged;
  case Command::bench:
    return CompareSolvers(options, out, comm) ? exitGood : exitNotConverged;
  case Command::info:
    PrintInfo(out, comm);
  }
  return exitGood;
}

int Run(int argc, char** argv) {
  const MPI_Comm comm = MPI_COMM_WORLD;
  const bool speaks = Rank(comm) == 0;
  std::ostream silence(nullptr);
  std::ostream& out = speaks ? std::cout : silence;
  std::ostream& err = speaks ? std::cerr : silence;
  try {
    Options options;
    if (const auto code = ParseOptions(argc, argv, options, out, err)) return *code;
    return Obey(options, out, comm);
  } catch (const Error& error) {
    err << "ves: " << error.what() << std::endl;
    return error.Code();
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
  MPI_Init(&argc, &argv);
  const int code = Run(argc, argv);
  MPI_Finalize();
  return code;
}
