#include "output_files.h"

#include "error.h"

#include <ves_groups.hpp>

#include <fstream>
#include <system_error>

namespace silicon {

// Throws on all processes by the verdict of process 0. MPI_Bcast.
void OutputDirectory::Require(bool good, const std::string& complaint) const {
  int verdict = good ? 1 : 0;
  MPI_Bcast(&verdict, 1, MPI_INT, 0, comm_);
  if (verdict == 0) throw Error(complaint);
}

OutputDirectory::OutputDirectory(const std::string& path, MPI_Comm comm)
    : path_(path), comm_(comm) {
  bool good = true;
  if (ves::rankIn(comm) == 0) {
    std::error_code error;
    std::filesystem::create_directories(path_, error);
    good = std::filesystem::is_directory(path_, error);
  }
  Require(good, "cannot create the directory '" + path + "'");
}

void OutputDirectory::Probe(const std::string& name) const {
  bool good = true;
  if (ves::rankIn(comm_) == 0) {
    std::error_code error;
    const bool existed = std::filesystem::exists(path_ / name, error);
    good = std::ofstream(path_ / name, std::ios::app).good();
    if (good && !existed) std::filesystem::remove(path_ / name, error);
  }
  Require(good, "cannot write '" + (path_ / name).string() + "'");
}

void OutputDirectory::Write(const std::string& name,
                            const std::function<void(std::ostream&)>& writer) const {
  bool good = true;
  if (ves::rankIn(comm_) == 0) {
    std::ofstream file(path_ / name);
    writer(file);
    file.close();
    good = file.good();
  }
  Require(good, "cannot write '" + (path_ / name).string() + "'");
}

} // namespace silicon
