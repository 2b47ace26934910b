#include "starting_bands.h"

#include <ves_groups.hpp>

#include <cmath>
#include <cstdint>
#include <numeric>

namespace silicon {

namespace {

// The SplitMix64 finalizer: a well mixed value for every state.
std::uint64_t Mix(std::uint64_t state) {
  state += 0x9e3779b97f4a7c15u;
  state = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9u;
  state = (state ^ (state >> 27)) * 0x94d049bb133111ebu;
  return state ^ (state >> 31);
}

// Uniform in [-1, 1).
double ToUnit(std::uint64_t bits) {
  return std::ldexp(double(bits >> 11), -52) - 1.0;
}

Complex Noise(const Index3& g, int band) {
  std::uint64_t state = static_cast<std::uint64_t>(band);
  for (const int component : g)
    state = Mix(state ^ static_cast<std::uint32_t>(component));
  return {ToUnit(state), ToUnit(Mix(state))};
}

// Rows on their way to other processes, ordered by the receiver.
struct Shipment {
  std::vector<int> rows; ///< per receiver
  std::vector<Index3> g; ///< coordinates in the new basis
  Coefficients values;   ///< bands values per row
};

Shipment Pack(const Coefficients& old, const PlaneWaves& from, const PlaneWaves& to,
              const Index3& shift, int bands, int processes) {
  std::vector<std::vector<std::size_t>> rowsFor(static_cast<std::size_t>(processes));
  const auto newIndex = [&](std::size_t row) {
    const Index3& g = from.Local()[row].g;
    return Index3{g[0] - shift[0], g[1] - shift[1], g[2] - shift[2]};
  };
  const std::size_t nRows = from.Local().size();
  for (std::size_t row = 0; row < nRows; ++row) {
    const Index3 g = newIndex(row);
    if (to.Contains(g)) rowsFor[static_cast<std::size_t>(to.Owner(g))].push_back(row);
  }
  Shipment shipment;
  for (const std::vector<std::size_t>& rows : rowsFor) {
    shipment.rows.push_back(static_cast<int>(rows.size()));
    for (const std::size_t row : rows) {
      shipment.g.push_back(newIndex(row));
      for (std::size_t j = 0; j < static_cast<std::size_t>(bands); ++j) {
        shipment.values.push_back(old[row + j * nRows]);
      }
    }
  }
  return shipment;
}

// Sends items of several elements each; counts in items per process.
template <typename Item>
void Exchange(const Item* send, const std::vector<int>& sendCounts, Item* receive,
              const std::vector<int>& receiveCounts, int elements, MPI_Datatype element,
              MPI_Comm comm) {
  MPI_Datatype type = MPI_DATATYPE_NULL;
  MPI_Type_contiguous(elements, element, &type);
  MPI_Type_commit(&type);
  const auto displacements = [](const std::vector<int>& counts) {
    std::vector<int> sums(counts.size(), 0);
    std::partial_sum(counts.begin(), counts.end() - 1, sums.begin() + 1);
    return sums;
  };
  MPI_Alltoallv(send, sendCounts.data(), displacements(sendCounts).data(), type, receive,
                receiveCounts.data(), displacements(receiveCounts).data(), type, comm);
  MPI_Type_free(&type);
}

} // namespace

Coefficients RandomBands(const PlaneWaves& basis, int bands) {
  Coefficients values;
  for (int band = 0; band < bands; ++band) {
    for (const PlaneWave& wave : basis.Local()) {
      values.push_back(Noise(wave.g, band) / (1.0 + wave.kinetic * wave.kinetic));
    }
  }
  return values;
}

Coefficients CarryOver(const Coefficients& old, const PlaneWaves& from, const PlaneWaves& to,
                       const Crystal& crystal, int bands, MPI_Comm comm) {
  const Vec3& k = from.WaveVector();
  const Vec3& kNew = to.WaveVector();
  const Vec3 step = crystal.ReciprocalCoordinates({kNew[0] - k[0], kNew[1] - k[1], kNew[2] - k[2]});
  const Index3 shift = {int(std::lround(step[0])), int(std::lround(step[1])),
                        int(std::lround(step[2]))};
  const int processes = ves::sizeOf(comm);
  const Shipment sent = Pack(old, from, to, shift, bands, processes);
  std::vector<int> counts(static_cast<std::size_t>(processes));
  MPI_Alltoall(sent.rows.data(), 1, MPI_INT, counts.data(), 1, MPI_INT, comm);
  const auto rows = static_cast<std::size_t>(std::accumulate(counts.begin(), counts.end(), 0));
  std::vector<Index3> g(rows);
  Coefficients received(rows * static_cast<std::size_t>(bands));
  Exchange(sent.g.data(), sent.rows, g.data(), counts, 3, MPI_INT, comm);
  Exchange(sent.values.data(), sent.rows, received.data(), counts, bands, MPI_C_DOUBLE_COMPLEX,
           comm);

  Coefficients values(to.Local().size() * static_cast<std::size_t>(bands));
  auto value = received.cbegin();
  for (const Index3& index : g) {
    const auto row = static_cast<std::size_t>(to.Row(index));
    for (std::size_t j = 0; j < static_cast<std::size_t>(bands); ++j) {
      values[row + j * to.Local().size()] = *value++;
    }
  }
  return values;
}

} // namespace silicon
