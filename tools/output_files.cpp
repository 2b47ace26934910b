#include "output_files.h"

#include "models.h"
#include "parallel.h"
#include "plot.h"
#include "result_file.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace VesTools {
namespace {

namespace fs = std::filesystem;

std::string CannotWrite(const std::string& path) {
  return path + ": cannot be written";
}

// Several outputs may share a device.
bool IsSameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  if (fs::exists(a, error) && !fs::is_regular_file(a, error)) return false;
  return fs::equivalent(a, b, error) ||
         fs::absolute(a).lexically_normal() == fs::absolute(b).lexically_normal();
}

std::string ComplaintOfOutput(const std::string& path, const std::vector<std::string>& taken) {
  for (const std::string& other : taken)
    if (IsSameFile(path, other))
      return std::string(path).append(": would be written over ") + other;
  if (fs::path(path).extension() == ".gz") return path + ": files are not packed: leave out .gz";
  std::error_code error;
  const bool existed = fs::exists(path, error);
  if (!std::ofstream(path, std::ios::app)) return CannotWrite(path);
  if (!existed) fs::remove(path, error);
  return "";
}

} // namespace

void ProbeOutput(const Options& options, MPI_Comm comm) {
  std::vector<std::string> taken = options.problem.files;
  const ModelName model = ParseModelName(options.problem.model);
  if (model.name == graphModel) taken.push_back(model.arguments);
  std::string complaint;
  for (const std::string& path :
       {options.output.json, options.output.vectors, options.output.plot, options.output.rows}) {
    if (path.empty() || Rank(comm) != 0 || !complaint.empty()) continue;
    complaint = ComplaintOfOutput(path, taken);
    taken.push_back(path);
  }
  AgreeOn(complaint, exitInput, comm);
}

std::string WriteFiles(const RunResult& result, const Options& options) {
  const OutputOptions& output = options.output;
  std::string complaint = result.unwritten;
  if (!output.json.empty() && !WriteResult(output.json, result, options))
    complaint = CannotWrite(output.json);
  if (!output.plot.empty()) {
    std::ofstream file(output.plot);
    WritePlot(file, result);
    file.close();
    if (!file) complaint = CannotWrite(output.plot);
  }
  return complaint;
}

} // namespace VesTools
