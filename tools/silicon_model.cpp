#include "models.h"

#ifdef VES_TOOLS_SILICON
#include "parallel.h"
#include "text_lines.h"

#include <silicon_bands/crystal.h>
#include <silicon_bands/error.h>
#include <silicon_bands/hamiltonian.h>
#include <silicon_bands/plane_waves.h>

#include <cmath>
#endif

namespace VesTools {

#ifdef VES_TOOLS_SILICON

namespace {

struct SiliconSizes {
  int supercell = 1;
  double cutoff = 10.0;
};

// Items NAME=VALUE separated by commas.
SiliconSizes ParseSilicon(const std::string& text) {
  SiliconSizes sizes;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const std::string item = text.substr(begin, end - begin);
    const std::size_t equals = std::min(item.find('='), item.size() - 1);
    const std::string name = item.substr(0, equals), value = item.substr(equals + 1);
    const bool isGood =
        (name == "supercell" && ParseNumber(std::string_view(value), sizes.supercell) &&
         sizes.supercell >= 1 && sizes.supercell <= 50) ||
        (name == "ecut" && ParseNumber(std::string_view(value), sizes.cutoff) &&
         sizes.cutoff > 0.0 && std::isfinite(sizes.cutoff));
    if (!isGood)
      throw Error(exitUsage, "--model silicon: '" + item +
                                 "' is neither supercell=N (1 to 50) nor ecut=RYDBERG");
    begin = end + 1;
  }
  return sizes;
}

template <typename Real>
Problem<std::complex<Real>> MakeSilicon(const SiliconSizes& sizes, MPI_Comm comm) {
  const silicon::Crystal crystal = silicon::Crystal::Supercell(sizes.supercell);
  const auto basis =
      std::make_shared<silicon::PlaneWaves>(crystal, silicon::Vec3{}, sizes.cutoff, comm);
  const auto hamiltonian = std::make_shared<silicon::Hamiltonian<Real>>(crystal, *basis, comm);
  Problem<std::complex<Real>> problem;
  const int atoms = 8 * sizes.supercell * sizes.supercell * sizes.supercell;
  problem.title = "silicon, " + std::to_string(atoms) + " atoms in plane waves";
  problem.comm = comm;
  std::vector<int> counts(static_cast<std::size_t>(Size(comm)));
  const int local = basis->LocalSize();
  MPI_Allgather(&local, 1, MPI_INT, counts.data(), 1, MPI_INT, comm);
  problem.offsets = {0};
  for (const int count : counts)
    problem.offsets.push_back(problem.offsets.back() + count);
  using Complex = std::complex<Real>;
  problem.a = [hamiltonian](const Complex* x, Complex* y, int nCols, int ld) {
    hamiltonian->Apply(x, y, nCols, ld);
  };
  problem.t = [hamiltonian](const Complex* x, Complex* y, int nCols, int ld) {
    hamiltonian->Precondition(x, y, nCols, ld);
  };
  for (const silicon::PlaneWave& wave : basis->Local())
    problem.guessWeights.push_back(1.0 / (1.0 + wave.kinetic * wave.kinetic));
  return problem;
}

} // namespace

bool HasSiliconModel() {
  return true;
}

template <typename Real>
Problem<std::complex<Real>> SiliconModel(const std::string& arguments, MPI_Comm comm) {
  try {
    return MakeSilicon<Real>(ParseSilicon(arguments), comm);
  } catch (const silicon::Error& error) {
    throw Error(exitUsage, std::string("--model silicon: ") + error.what());
  }
}

#else

bool HasSiliconModel() {
  return false;
}

template <typename Real>
Problem<std::complex<Real>> SiliconModel(const std::string&, MPI_Comm) {
  throw Error(exitUsage,
              "--model silicon: this program was built without FFTW and has no such model");
}

#endif

template Problem<std::complex<double>> SiliconModel(const std::string&, MPI_Comm);
template Problem<std::complex<float>> SiliconModel(const std::string&, MPI_Comm);

} // namespace VesTools
