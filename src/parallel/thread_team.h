#ifndef VES_PARALLEL_THREAD_TEAM_H
#define VES_PARALLEL_THREAD_TEAM_H

#include <ves.h>

#include <utility>

namespace Ves {

/// Threads that share most of a run's work on tall blocks, by rows or by columns. From its
/// construction to its end a team is the current one of its thread, and the provider's BLAS keeps
/// to one thread there. Without a team nothing is shared. Its threads are those of OpenMP, as are
/// those of routines that use it.
class VES_EXPORT ThreadTeam {
public:
  /// \param wanted at least 1; 0: none, nor one around it; -1: as many as the provider's
  ///               BLAS has, where it tells, or OpenMP would take; no team without OpenMP
  ///               and in a process that was forked after one was made
  explicit ThreadTeam(int wanted);
  ~ThreadTeam();
  ThreadTeam(const ThreadTeam&) = delete;
  ThreadTeam& operator=(const ThreadTeam&) = delete;

  /// Whether the library was built with OpenMP.
  static bool IsAvailable();
  static int Size(); ///< of the current team; 1 without, and where its threads are at work

  /// From its construction to its end the provider's threads are as the caller has them: for his
  /// routines, for dense problems that are large enough, and for the team of a solver within.
  class VES_EXPORT Rest {
  public:
    Rest();
    ~Rest();
    Rest(const Rest&) = delete;
    Rest& operator=(const Rest&) = delete;

  private:
    int m_ofTeam = 0;
  };

private:
  int m_size, m_providerThreads = 0;
  const ThreadTeam* m_outer;
};

/// Parts of a number of rows or columns, one for each thread, none of fewer than the least unless
/// it is the only one.
struct VES_EXPORT Shares {
  int count, total;

  Shares(int total, int least);
  int First(int part) const {
    return static_cast<int>(static_cast<long long>(total) * part / count);
  }
  int Length(int part) const { return First(part + 1) - First(part); }
  /// Calls work(data, part) for every part, side by side. work throws nothing.
  void Run(void (*work)(void* data, int part), void* data) const;
};

/// Rows below which a thread is not worth its start.
constexpr int leastRows = 512;

/// Calls work(part, first, length) for every part, side by side. It throws nothing.
template <typename Work>
void InShares(const Shares& shares, Work work) {
  std::pair<const Shares&, Work&> both{shares, work};
  shares.Run(
      [](void* data, int part) {
        auto& [parts, call] = *static_cast<decltype(both)*>(data);
        call(part, parts.First(part), parts.Length(part));
      },
      &both);
}

/// Calls work(first, length) for rows of tall blocks: each row once, in any order.
template <typename Work>
void ShareRows(int rows, Work work) {
  InShares(Shares(rows, leastRows), [&](int, int first, int length) { work(first, length); });
}

/// Calls work(j) for every column of a block of so many rows.
template <typename Work>
void ShareColumns(int rows, int columns, Work work) {
  InShares(Shares(columns, rows < leastRows ? columns : 1), [&](int, int first, int length) {
    for (int j = first; j < first + length; ++j)
      work(j);
  });
}

} // namespace Ves

#endif
