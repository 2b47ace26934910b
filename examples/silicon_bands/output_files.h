#ifndef SILICON_OUTPUT_FILES_H
#define SILICON_OUTPUT_FILES_H

#include <mpi.h>

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

namespace silicon {

/// A directory that process 0 writes result files to. All members are collective and throw Error
/// on every process when the file system refuses.
class OutputDirectory {
public:
  /// Creates the directory if need be.
  OutputDirectory(const std::string& path, MPI_Comm comm);

  /// Makes sure that a file can be written before the work for it is done; leaves it as it is.
  void Probe(const std::string& name) const;

  /// Writes a file. The writer runs on process 0 alone.
  void Write(const std::string& name, const std::function<void(std::ostream&)>& writer) const;

private:
  void Require(bool good, const std::string& complaint) const;

  std::filesystem::path path_;
  MPI_Comm comm_;
};

} // namespace silicon

#endif
