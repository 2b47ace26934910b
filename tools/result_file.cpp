#include "result_file.h"

#include "models.h"
#include "names.h"
#include "parallel.h"
#include "text_file.h"
#include "text_lines.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace VesTools {
namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

fs::path FolderOf(const std::string& path) {
  return fs::absolute(path).parent_path();
}

std::string RelativeTo(const fs::path& folder, const std::string& path) {
  return fs::absolute(path).lexically_relative(folder).generic_string();
}

std::string From(const fs::path& folder, const std::string& path) {
  return (folder / path).lexically_normal().string();
}

// A model names a file only when it is a graph.
template <typename Function>
std::string WithModelFile(const std::string& model, Function&& change) {
  const auto [name, arguments] = ParseModelName(model);
  return name == graphModel ? name + ":" + change(arguments) : model;
}

Json DescribeProblem(const RunResult& result, const Options& options, const fs::path& folder) {
  Json problem;
  if (options.problem.model.empty()) {
    problem["files"] = Json::array();
    for (const std::string& file : options.problem.files)
      problem["files"].push_back(RelativeTo(folder, file));
  } else {
    problem["model"] = WithModelFile(
        options.problem.model, [&](const std::string& file) { return RelativeTo(folder, file); });
  }
  problem["scalar"] = NameOf(scalarNames, result.scalar);
  problem["order"] = result.order;
  problem["nonZerosA"] = result.nonZerosA;
  problem["nonZerosB"] = result.nonZerosB;
  return problem;
}

Json DescribeSolver(const RunResult& result) {
  const RunSettings& settings = result.settings;
  return {{"name", NameOf(solverNames, settings.solver)},
          {"preconditioner", result.preconditioner},
          {"which", settings.isLargest ? "largest" : "lowest"},
          {"pairs", settings.pairs},
          {"processes", result.processes},
          {"detector", NameOf(detectorNames, result.detector)},
          {"threshold", settings.threshold},
          {"normA", settings.normA},
          {"normB", settings.normB}};
}

Json DescribeCosts(const RunResult& result) {
  const VesSolverStats& stats = result.stats;
  return {{"columnsA", stats.columnsA},           {"columnsB", stats.columnsB},
          {"columnsT", stats.columnsT},           {"columnsLow", stats.columnsLow},
          {"reductions", stats.reductions},       {"bytesReduced", stats.bytesReduced},
          {"secondsA", result.secondsA},          {"secondsB", result.secondsB},
          {"secondsT", result.secondsT},          {"secondsDense", stats.secondsDense},
          {"secondsTotal", stats.secondsTotal},   {"bytesTaken", result.bytesTaken},
          {"bytesForecast", result.bytesForecast}};
}

double LargestKnown(const std::vector<double>& residuals) {
  double largest = 0.0;
  for (const double residual : residuals)
    largest = residual > largest ? residual : largest;
  return largest;
}

Json DescribeHistory(const History& history) {
  Json list = Json::array();
  for (const HistoryEntry& entry : history)
    list.push_back({{"iteration", entry.iteration},
                    {"converged", entry.converged},
                    {"columnsA", entry.columnsA},
                    {"largestResidual", LargestKnown(entry.residuals)}});
  return list;
}

template <typename Choice>
Choice ChoiceOf(const Names<Choice>& names, const Json& json) {
  const auto found = names.find(json.get<std::string>());
  if (found == names.end()) throw std::runtime_error("unknown name " + json.dump());
  return found->second;
}

// A number that is not finite is null in JSON.
std::vector<double> NumbersOf(const Json& list) {
  std::vector<double> numbers;
  for (const Json& value : list)
    numbers.push_back(value.is_null() ? std::nan("") : value.get<double>());
  return numbers;
}

Claim ParseClaim(const Json& json, const fs::path& folder) {
  Claim claim;
  const Json& problem = json.at("problem");
  for (const Json& file : problem.value("files", Json::array()))
    claim.problem.files.push_back(From(folder, file.get<std::string>()));
  claim.problem.model = WithModelFile(problem.value("model", std::string()),
                                      [&](const std::string& file) { return From(folder, file); });
  if (claim.problem.model.empty() &&
      (claim.problem.files.empty() || claim.problem.files.size() > 2))
    throw std::runtime_error("neither one or two files nor a model");
  claim.problem.scalar = ChoiceOf(scalarNames, problem.at("scalar"));
  if (!json.contains("vectors"))
    throw std::runtime_error("no vectors to check; solve with --vectors too");
  claim.vectors = From(folder, json.at("vectors").get<std::string>());
  claim.values = NumbersOf(json.at("eigenvalues"));
  claim.residuals = NumbersOf(json.at("residuals"));
  if (claim.values.empty()) throw std::runtime_error("no eigenvalues");
  if (claim.residuals.size() != claim.values.size())
    throw std::runtime_error("not as many residuals as eigenvalues");
  claim.converged = json.at("converged").get<int>();
  if (claim.converged < 0 || claim.converged > static_cast<int>(claim.values.size()))
    throw std::runtime_error("more pairs converged than there are, or fewer than none");
  const Json& solver = json.at("solver");
  claim.isLargest = solver.value("which", "lowest") == "largest";
  claim.processes = solver.at("processes").get<int>();
  claim.detector = ChoiceOf(detectorNames, solver.at("detector"));
  claim.threshold = solver.at("threshold").get<double>();
  claim.normA = solver.at("normA").get<double>();
  claim.normB = solver.at("normB").get<double>();
  return claim;
}

} // namespace

bool WriteResult(const std::string& path, const RunResult& result, const Options& options) {
  const fs::path folder = FolderOf(path);
  Json json;
  json["version"] = VesGetVersion();
  json["problem"] = DescribeProblem(result, options, folder);
  json["solver"] = DescribeSolver(result);
  json["reason"] = result.Reason();
  json["iterations"] = result.iterations;
  json["converged"] = result.converged;
  json["eigenvalues"] = result.values;
  json["residuals"] = result.residuals;
  json["orthoError"] = result.orthoError;
  if (!options.output.vectors.empty() && result.unwritten.empty())
    json["vectors"] = RelativeTo(folder, options.output.vectors);
  json["costs"] = DescribeCosts(result);
  json["history"] = DescribeHistory(result.history);
  std::ofstream file(path);
  // A file name need not be valid Unicode, which JSON is.
  file << json.dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
  file.close();
  return file.good();
}

Claim ReadClaim(const std::string& path, MPI_Comm comm) {
  std::string text, complaint;
  long long bytes = 0;
  if (Rank(comm) == 0) complaint = ComplaintOfFile(path);
  if (Rank(comm) == 0 && complaint.empty()) complaint = MeasureText(path, bytes);
  if (Rank(comm) == 0 && complaint.empty()) {
    text.resize(static_cast<std::size_t>(bytes));
    OpenText(path)->read(text.data(), bytes);
  }
  AgreeOn(complaint, exitInput, comm);
  try {
    return ParseClaim(Json::parse(Broadcast(text, comm)), FolderOf(path));
  } catch (const std::runtime_error& error) {
    throw Error(exitInput, path + ": " + error.what());
  } catch (const nlohmann::json::exception& error) {
    throw Error(exitInput, path + ": " + error.what());
  }
}

} // namespace VesTools
