/// \file ves_groups.hpp
/// Many independent problems side by side: groups of processes share k points or spins, each group
/// with a communicator for its blocks. Header only, beside ves.hpp.
#ifndef VES_GROUPS_HPP
#define VES_GROUPS_HPP

#include <ves_blocks.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <limits>
#include <numeric>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace ves {

/* ------------------------------------------------------------------ communicators */

/// Rank of this process.
inline int rankIn(MPI_Comm comm) {
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  return rank;
}

/// Number of processes.
inline int sizeOf(MPI_Comm comm) {
  int size = 0;
  MPI_Comm_size(comm, &size);
  return size;
}

/// Owner of a communicator, which it frees unless MPI has ended. Its end is collective over it.
class Communicator {
public:
  Communicator() = default; ///< owns none
  /// The processes of parent that name the same color, in the same order; none for those that name
  /// MPI_UNDEFINED. Collective over parent.
  Communicator(MPI_Comm parent, int color) { MPI_Comm_split(parent, color, 0, &m_comm); }
  /// Leaves none behind.
  Communicator(Communicator&& other) noexcept
      : m_comm(std::exchange(other.m_comm, MPI_COMM_NULL)) {}
  /// Exchanges the two.
  Communicator& operator=(Communicator&& other) noexcept {
    std::swap(m_comm, other.m_comm);
    return *this;
  }
  ~Communicator() {
    int hasEnded = 0;
    MPI_Finalized(&hasEnded);
    if (m_comm != MPI_COMM_NULL && hasEnded == 0) MPI_Comm_free(&m_comm);
  }

  MPI_Comm get() const { return m_comm; } ///< MPI_COMM_NULL for none

private:
  MPI_Comm m_comm = MPI_COMM_NULL;
};

/* ------------------------------------------------------------------ failures of one for all */

/// What was thrown on one process, with the same text on all that have to know of it.
class SharedError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Throws SharedError on all processes with the text that has the lowest order, that of the lowest
/// rank where orders are equal; nothing where all processes have the largest int. Collective:
/// MPI_Allreduce and, for a text, MPI_Bcast of its length and of itself.
inline void throwFirst(MPI_Comm comm, int order, std::string text) {
  int first[2] = {order, rankIn(comm)};
  MPI_Allreduce(MPI_IN_PLACE, first, 1, MPI_2INT, MPI_MINLOC, comm);
  if (first[0] == std::numeric_limits<int>::max()) return;
  int length = static_cast<int>(text.size());
  MPI_Bcast(&length, 1, MPI_INT, first[1], comm);
  text.resize(static_cast<std::size_t>(length));
  MPI_Bcast(text.data(), length, MPI_CHAR, first[1], comm);
  throw SharedError(text);
}

/// Calls work on all processes, and throws SharedError on all where it threw on any. The others
/// must come to the end of theirs. Collective.
template <typename Work>
void together(MPI_Comm comm, Work&& work) {
  int order = 0;
  std::string text = "an exception without a text";
  try {
    work();
    order = std::numeric_limits<int>::max();
  } catch (const std::exception& error) {
    text = error.what();
  } catch (...) {
  }
  throwFirst(comm, order, std::move(text));
}

/* ------------------------------------------------------------------ progress */

/// Says on process 0 how many problems of all groups are solved. Nobody waits for it before the end
/// of a run: the first process of a group has one message under way at most, and puts into the next
/// what was solved meanwhile; process 0 looks for messages between problems of its own, and at the
/// end receives up to the last one of each group.
class GroupProgress {
public:
  /// To be made on the first process of each group, which process 0 of comm is one of. That writes
  /// lines, which begin with the name of the problems: one a second at most, fewer in a long run,
  /// and one at the end.
  GroupProgress(MPI_Comm comm, int nGroups, int nProblems, std::ostream* lines, std::string name)
      : m_comm(comm), m_isListener(rankIn(comm) == 0), m_open(nGroups - 1), m_total(nProblems),
        m_lines(lines), m_name(std::move(name)) {}
  GroupProgress(const GroupProgress&) = delete; // a message under way stays where it is
  GroupProgress& operator=(const GroupProgress&) = delete;

  /// One more problem of this group is solved.
  void note() {
    ++m_solved;
    if (m_isListener)
      listen();
    else if (isMessageReceived())
      send(false);
  }

  /// This group has no more; on process 0 no group has. To be called once.
  void finish() {
    if (m_isListener) {
      while (m_open > 0)
        receive();
      show(true);
    } else {
      MPI_Wait(&m_request, MPI_STATUS_IGNORE);
      send(true);
      MPI_Wait(&m_request, MPI_STATUS_IGNORE);
    }
  }

private:
  bool isMessageReceived() {
    int isDone = 0;
    MPI_Test(&m_request, &isDone, MPI_STATUS_IGNORE); // true of none, too
    return isDone != 0;
  }

  void send(bool isLast) {
    m_message[0] = std::exchange(m_solved, 0);
    m_message[1] = isLast ? 1 : 0;
    MPI_Issend(m_message, 2, MPI_INT, 0, 0, m_comm, &m_request);
  }

  void listen() {
    for (;;) {
      int isThere = 0;
      MPI_Iprobe(MPI_ANY_SOURCE, 0, m_comm, &isThere, MPI_STATUS_IGNORE);
      if (isThere == 0) break;
      receive();
    }
    show(false);
  }

  void receive() {
    MPI_Recv(m_message, 2, MPI_INT, MPI_ANY_SOURCE, 0, m_comm, MPI_STATUS_IGNORE);
    m_solved += m_message[0];
    m_open -= m_message[1];
    show(false);
  }

  // A stream that throws, on this process alone, gets no more lines.
  void show(bool isLast) {
    const double now = MPI_Wtime() - m_start, pause = std::max(1.0, 0.02 * now);
    const bool isDue = isLast || m_shown == 0 || now - m_lastShown >= pause;
    if (m_lines == nullptr || !isDue || m_solved == m_shown) return;
    char numbers[80];
    std::snprintf(numbers, sizeof(numbers), " %d of %d done, %.1f s\n", m_solved, m_total, now);
    try {
      *m_lines << m_name << numbers << std::flush;
    } catch (...) {
      m_lines = nullptr;
    }
    m_shown = m_solved;
    m_lastShown = now;
  }

  MPI_Comm m_comm;
  bool m_isListener;
  int m_open;            ///< other groups that have not told of their end
  int m_total;           ///< problems of all groups
  int m_solved = 0;      ///< by all groups on process 0, else those that no message told of
  int m_message[2] = {}; ///< problems solved since the message before, whether it is the last
  MPI_Request m_request = MPI_REQUEST_NULL;
  std::ostream* m_lines;
  std::string m_name;
  int m_shown = 0;
  double m_start = MPI_Wtime(), m_lastShown = 0.0;
};

/* ------------------------------------------------------------------ groups */

/// How processes and problems are shared out.
struct GroupOptions {
  int groups = 0;                   ///< how many; 0 for as many as may be
  std::vector<double> costs;        ///< of the problems, positive and in any unit; none: all alike
  std::ostream* progress = nullptr; ///< for lines "k points 7 of 30 done, 12.3 s" of process 0
  std::string name = "problems";    ///< what those lines call them
};

/// The group of each problem. The longest comes first, and each goes to the group that is least
/// loaded for the number of its processes, the first of such groups.
inline std::vector<int> assignProblems(const std::vector<double>& costs,
                                       const std::vector<int>& groupSizes) {
  std::vector<std::size_t> order(costs.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return costs[a] > costs[b]; });
  std::vector<double> loads(groupSizes.size(), 0.0);
  std::vector<int> groups(costs.size());
  for (const std::size_t problem : order) {
    const auto group = std::min_element(loads.begin(), loads.end()) - loads.begin();
    groups[problem] = static_cast<int>(group);
    loads[static_cast<std::size_t>(group)] +=
        costs[problem] / groupSizes[static_cast<std::size_t>(group)];
  }
  return groups;
}

/// Groups of processes, neighbours by rank, whose sizes differ by one at most, and their problems.
/// There are no more groups than problems or processes, and at least one. Construction, run and
/// destruction are collective over the communicator that is shared out.
class Groups {
public:
  /// For problems 0 to nProblems - 1; what process 0 is given holds for all. Throws Error with
  /// VES_ERR_INVALID_VALUE for a null communicator and, on all processes, for a negative number, or
  /// costs that are not nProblems positive numbers.
  Groups(MPI_Comm comm, int nProblems, const GroupOptions& options = {})
      : m_all(comm == MPI_COMM_NULL ? throw Error(VES_ERR_INVALID_VALUE, "ves::Groups") : comm, 0),
        m_name(options.name), m_lines(options.progress) {
    decide(nProblems, options);
    const int size = sizeOf(m_all.get()), rank = rankIn(m_all.get());
    while (m_index + 1 < count() && firstRank(m_index + 1, size) <= rank)
      ++m_index;
    m_group = Communicator(m_all.get(), m_index);
    for (std::size_t p = 0; p < m_groupOf.size(); ++p)
      if (m_groupOf[p] == m_index) m_problems.push_back(static_cast<int>(p));
  }

  MPI_Comm comm() const { return m_group.get(); }                 ///< of this group
  int index() const { return m_index; }                           ///< of this group, from 0
  int count() const { return m_plan.groups; }                     ///< of groups
  const std::vector<int>& problems() const { return m_problems; } ///< of this group, ascending

  /// Calls work(problem) on all processes of a group for each of its problems, in ascending order,
  /// and returns the results of all problems in their order on all processes, where they are those
  /// of the first process of the group. A result is of a trivially copyable type, a std::vector of
  /// such a type, or nothing.
  ///
  /// A group ends its work when a call of work has thrown on any of its processes; the other groups
  /// do all of theirs. Then all processes throw SharedError with the same text, that of the
  /// lowest problem that failed; the groups may run again. For that every call has to come to its
  /// end: where one process of a group leaves work and others wait inside for a message from it,
  /// they wait for ever. Steps that may fail on one process alone, before such messages, belong
  /// into together over comm().
  template <typename Work>
  auto run(Work&& work) const {
    using Result = std::decay_t<std::invoke_result_t<Work&, int>>;
    if constexpr (std::is_void_v<Result>) {
      solve(work);
    } else {
      std::vector<Result> results(m_groupOf.size());
      solve([&](int problem) { results[static_cast<std::size_t>(problem)] = work(problem); });
      for (std::size_t p = 0; p < results.size(); ++p)
        share(results[p], firstRank(m_groupOf[p], sizeOf(m_all.get())));
      return results;
    }
  }

private:
  struct Plan {
    int problems, groups, isShown; ///< a negative number of problems stands for a refusal
  };

  // Taken on process 0, since costs that were measured differ between processes. MPI_Bcast, twice.
  void decide(int nProblems, const GroupOptions& options) {
    const MPI_Comm comm = m_all.get();
    const auto n = static_cast<std::size_t>(std::max(nProblems, 0));
    const std::vector<double> costs =
        options.costs.empty() ? std::vector<double>(n, 1.0) : options.costs;
    const bool isSound =
        nProblems >= 0 && options.groups >= 0 && costs.size() == n &&
        std::all_of(costs.begin(), costs.end(), [](double c) { return c > 0 && std::isfinite(c); });
    const int size = sizeOf(comm), most = std::max(1, std::min(nProblems, size));
    m_plan = {isSound ? nProblems : -1, options.groups == 0 ? most : std::min(options.groups, most),
              m_lines != nullptr ? 1 : 0};
    MPI_Bcast(&m_plan, 3, MPI_INT, 0, comm);
    if (m_plan.problems < 0) throw Error(VES_ERR_INVALID_VALUE, "ves::Groups");
    m_groupOf.resize(static_cast<std::size_t>(m_plan.problems));
    if (rankIn(comm) == 0) {
      std::vector<int> sizes;
      for (int group = 0; group < count(); ++group)
        sizes.push_back(firstRank(group + 1, size) - firstRank(group, size));
      m_groupOf = assignProblems(costs, sizes);
    }
    MPI_Bcast(m_groupOf.data(), m_plan.problems, MPI_INT, 0, comm);
  }

  // The larger groups come first.
  int firstRank(int group, int size) const {
    return group * (size / count()) + std::min(group, size % count());
  }

  // On each group an MPI_Allreduce after each problem, then throwFirst on all.
  template <typename Work>
  void solve(Work&& work) const {
    const bool tells = m_plan.isShown != 0 && rankIn(m_group.get()) == 0;
    std::optional<GroupProgress> progress;
    if (tells) progress.emplace(m_all.get(), count(), m_plan.problems, m_lines, m_name);
    int order = std::numeric_limits<int>::max();
    std::string text;
    for (const int problem : m_problems) {
      try {
        together(comm(), [&] { work(problem); });
      } catch (const SharedError& error) {
        order = problem;
        text = "problem " + std::to_string(problem) + ": " + error.what();
        break;
      }
      if (progress) progress->note();
    }
    if (progress) progress->finish();
    throwFirst(m_all.get(), order, std::move(text));
  }

  template <typename Item>
  void share(Item& item, int root) const {
    static_assert(std::is_trivially_copyable_v<Item>, "a result is copied byte by byte");
    broadcast(&item, sizeof(item), root);
  }
  template <typename Item>
  void share(std::vector<Item>& items, int root) const {
    static_assert(std::is_trivially_copyable_v<Item>, "a result is copied byte by byte");
    std::size_t n = items.size();
    share(n, root);
    items.resize(n);
    broadcast(items.data(), n * sizeof(Item), root);
  }
  void broadcast(void* data, std::size_t bytes, int root) const {
    constexpr std::size_t most = std::size_t{1} << 30; // counts of MPI are int
    for (std::size_t at = 0; at < bytes; at += most)
      MPI_Bcast(static_cast<char*>(data) + at, static_cast<int>(std::min(most, bytes - at)),
                MPI_BYTE, root, m_all.get());
  }

  Communicator m_all; ///< a copy of the one given, for messages that meet no others
  Communicator m_group;
  std::string m_name;
  std::ostream* m_lines; ///< none but on process 0 is used
  Plan m_plan = {};
  int m_index = 0;
  std::vector<int> m_groupOf; ///< group of each problem
  std::vector<int> m_problems;
};

} // namespace ves

#endif
