#include "convert.h"

#include "output_files.h"
#include "parallel.h"
#include "problem.h"
#include "row_file.h"

namespace VesTools {

void ConvertMatrix(const Options& options, std::ostream& out, MPI_Comm comm) {
  ProbeOutput(options, comm);
  const ProblemData data = LoadProblem(options.problem, comm);
  const std::string& path = options.output.rows;
  const RowFileSummary written = WriteRowFile(path, data.a, data.offsets.back(), comm);
  out << path << ": " << data.offsets.back() << " rows, " << written.entries
      << (data.scalar == VES_DOUBLE ? " real" : " complex") << " entries, " << written.bytes
      << " bytes\n";
}

} // namespace VesTools
