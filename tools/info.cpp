#include "info.h"

#include "models.h"
#include "parallel.h"
#include "products.h"

#include <ves.h>

#include <dlfcn.h>
#include <link.h>
#include <sched.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace VesTools {
namespace {

int Collect(dl_phdr_info* info, std::size_t, void* list) {
  static_cast<std::vector<std::string>*>(list)->emplace_back(info->dlpi_name);
  return 0;
}

/// Paths of the loaded libraries whose file name begins with "lib" and one of these words.
std::vector<std::string> LoadedLibraries(const std::vector<std::string>& words) {
  std::vector<std::string> all, found;
  dl_iterate_phdr(Collect, &all);
  for (const std::string& path : all) {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    const auto begins = [&](const std::string& word) { return name.rfind("lib" + word, 0) == 0; };
    if (std::any_of(words.begin(), words.end(), begins)) found.push_back(path);
  }
  return found;
}

void PrintLibraries(std::ostream& out, const char* what, const std::vector<std::string>& words) {
  for (const std::string& path : LoadedLibraries(words)) {
    out << what << path << "\n";
    what = "            ";
  }
}

/// A function of OpenBLAS, if that is what is loaded.
template <typename Function>
Function* FindFunction(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

int CoresHere() {
  cpu_set_t set;
  return sched_getaffinity(0, sizeof(set), &set) == 0 ? CPU_COUNT(&set) : 1;
}

int BlasThreads() {
  if (const auto threads = FindFunction<int()>("openblas_get_num_threads")) return threads();
  const char* text = std::getenv("OMP_NUM_THREADS");
  return text != nullptr ? std::max(std::atoi(text), 1) : 1;
}

// Processes of this computer. Collective.
int ProcessesHere(MPI_Comm comm) {
  MPI_Comm here = MPI_COMM_NULL;
  MPI_Comm_split_type(comm, MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &here);
  const int count = Size(here);
  MPI_Comm_free(&here);
  return count;
}

void WarnOfThreads(std::ostream& out, int processes, int threads, int cores) {
  if (processes * threads <= cores) return;
  out << "warning     " << processes << " processes of " << threads << " threads share " << cores
      << " cores: ";
  if (threads > 1) out << "set OPENBLAS_NUM_THREADS=" << std::max(cores / processes, 1) << " or ";
  out << "start fewer processes\n";
}

} // namespace

void PrintInfo(std::ostream& out, const Kernels& kernels, MPI_Comm comm) {
  char mpi[MPI_MAX_LIBRARY_VERSION_STRING] = "";
  int length = 0;
  MPI_Get_library_version(mpi, &length);
  const int processes = ProcessesHere(comm), threads = BlasThreads(), cores = CoresHere();
  out << "ves         " << VesGetVersion() << "\n";
  PrintLibraries(out, "library     ", {"ves"});
  PrintLibraries(out, "BLAS        ", {"openblas", "blas", "mkl", "blis", "atlas"});
  PrintLibraries(out, "LAPACK      ", {"lapack", "flame"});
  PrintLibraries(out, "ScaLAPACK   ", {"scalapack"});
  if (!kernels.inUse.empty())
    out << "kernels     OpenBLAS for " << kernels.inUse
        << (kernels.isChosen ? ", chosen by this program\n" : "\n");
  out << "MPI         " << std::string(mpi, std::strcspn(mpi, ",\n")) << "\n"
      << "processes   " << Size(comm) << ", " << processes << " here\n"
      << "threads     " << threads << " of BLAS for each process, " << cores << " cores\n"
      << "models      laplace1d, laplace2d, laplace3d, graph"
      << (HasSiliconModel() ? ", silicon" : "; silicon needs FFTW") << "\n";
  WarnOfThreads(out, processes, threads, cores);
  PrintAdvice(out, kernels);
  if (!AreProductsRight()) out << "warning     the BLAS multiplies wrongly: take another one\n";
}

} // namespace VesTools
