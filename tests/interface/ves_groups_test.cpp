// Groups of processes: who gets which problem, whose results come back, what failures and messages
// of progress do to the others.
#include "support/processes.h"

#include <ves_groups.hpp>

#include <gtest/gtest.h>

#include <array>
#include <sstream>

using namespace VesTest;

namespace {

int sent = 0, received = 0; // messages of progress, which alone are sent by MPI_Issend

} // namespace

extern "C" int MPI_Issend(const void* data, int count, MPI_Datatype type, int to, int tag,
                          MPI_Comm comm, MPI_Request* request) {
  ++sent;
  return PMPI_Issend(data, count, type, to, tag, comm, request);
}
extern "C" int MPI_Recv(void* data, int count, MPI_Datatype type, int from, int tag, MPI_Comm comm,
                        MPI_Status* status) {
  if (comm != world) ++received;
  return PMPI_Recv(data, count, type, from, tag, comm, status);
}

namespace {

int SumOver(MPI_Comm comm, int value) {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT, MPI_SUM, comm);
  return value;
}

ves::GroupOptions Into(int groups) {
  ves::GroupOptions options;
  options.groups = groups;
  return options;
}

bool Has(const ves::Groups& groups, int problem) {
  return std::count(groups.problems().begin(), groups.problems().end(), problem) > 0;
}

/// What is thrown on this process, which all of them have to have thrown alike.
template <typename Function>
std::string SharedText(Function&& function) {
  std::string text = "nothing";
  try {
    function();
  } catch (const ves::SharedError& error) {
    text = error.what();
  }
  EXPECT_TRUE(IsSameOver(world, std::vector<char>(text.begin(), text.end())));
  return text;
}

TEST(VesGroups, AssignmentIsBalanced) {
  using Ints = std::vector<int>;
  EXPECT_EQ(ves::assignProblems({1, 1, 1, 1, 1}, {1, 1}), (Ints{0, 1, 0, 1, 0}));
  EXPECT_EQ(ves::assignProblems({1, 1, 5, 2, 1}, {1, 1}), (Ints{1, 1, 0, 1, 1}));
  EXPECT_EQ(ves::assignProblems({1, 1, 1, 1, 1, 1}, {2, 1}), (Ints{0, 1, 0, 0, 1, 0}));
  // No group could have been left for another that had less when its last problem came.
  const Ints sizes = {3, 2, 2, 2};
  std::vector<double> costs, loads(sizes.size()), last(sizes.size(), 10.0);
  for (int p = 0; p < 40; ++p)
    costs.push_back(1.0 + p * p % 11);
  const Ints groups = ves::assignProblems(costs, sizes);
  for (std::size_t p = 0; p < costs.size(); ++p) {
    const auto group = static_cast<std::size_t>(groups[p]);
    loads[group] += costs[p] / sizes[group];
    last[group] = std::min(last[group], costs[p] / sizes[group]);
  }
  const double least = *std::min_element(loads.begin(), loads.end());
  for (std::size_t group = 0; group < sizes.size(); ++group)
    EXPECT_LE(loads[group] - last[group], least + 1e-12);
}

/// Costs measured on each process differ; those of process 0 hold.
TEST(VesGroups, ProcessZeroDecides) {
  ves::GroupOptions options;
  for (int p = 0; p < 9; ++p)
    options.costs.push_back(1 + (p * 7 + RankIn(world) * 5) % 9);
  const ves::Groups groups(world, 9, options);
  const std::vector<int> found = groups.run([&](int) { return groups.index(); });
  EXPECT_TRUE(IsSameOver(world, found));
  for (const int problem : groups.problems())
    EXPECT_EQ(found[static_cast<std::size_t>(problem)], groups.index());

  options.costs[4] = RankIn(world) == 0 ? 0.0 : 1.0;
  EXPECT_THROW(ves::Groups(world, 9, options), ves::Error);
  EXPECT_THROW(ves::Groups(world, 8, options), ves::Error);
  EXPECT_THROW(ves::Groups(world, -1), ves::Error);
  EXPECT_THROW(ves::Groups(world, 1, Into(-1)), ves::Error);
  EXPECT_THROW(ves::Groups(MPI_COMM_NULL, 1), ves::Error);
}

TEST(VesGroups, ResultsComeInOrder) {
  static const ves::Groups outlivesMpi(world, 3);
  const int size = SizeOf(world);
  for (const int n : {0, 1, 3, 10})
    for (const int wish : {0, 1, 2, 100}) {
      SCOPED_TRACE(testing::Message() << n << " problems in " << wish << " groups");
      const ves::Groups groups(world, n, Into(wish));
      const int most = std::max(1, std::min(n, size));
      EXPECT_EQ(groups.count(), wish == 0 ? most : std::min(wish, most));
      const int here = SizeOf(groups.comm()), least = size / groups.count();
      EXPECT_TRUE(here == least || here == least + 1);
      EXPECT_EQ(SumOver(world, RankIn(groups.comm()) == 0 ? 1 : 0), groups.count());

      int before = -1;
      const auto lists = groups.run([&](int problem) {
        EXPECT_LT(std::exchange(before, problem), problem);
        EXPECT_EQ(SumOver(groups.comm(), problem), here * problem); // all are at the same one
        return std::vector<double>(static_cast<std::size_t>(problem % 3),
                                   problem + 0.5 * RankIn(groups.comm()));
      });
      const auto arrays = groups.run([](int problem) {
        return std::array<float, 2>{0, float(problem)};
      });
      ASSERT_EQ(lists.size(), static_cast<std::size_t>(n));
      ASSERT_EQ(arrays.size(), static_cast<std::size_t>(n));
      for (int p = 0; p < n; ++p) {
        const auto at = static_cast<std::size_t>(p);
        EXPECT_EQ(lists[at], std::vector<double>(at % 3, p));
        EXPECT_EQ(arrays[at][1], float(p));
      }
    }
}

TEST(VesGroups, FailuresLeaveOnAllProcesses) {
  constexpr int n = 8;
  const ves::Groups groups(world, n, Into(3));
  const bool isLast = RankIn(groups.comm()) == SizeOf(groups.comm()) - 1;
  int ended = 0;
  // Problems 4 and 5 belong to different groups where there are several.
  const auto work = [&](int problem) {
    if (isLast && problem == 4) throw 4;
    if (isLast && problem == 5) throw std::runtime_error("told to");
    ++ended;
  };
  EXPECT_EQ(SharedText([&] { groups.run(work); }), "problem 4: an exception without a text");
  const bool isHit = Has(groups, 4) || Has(groups, 5);
  EXPECT_TRUE(isHit || ended == static_cast<int>(groups.problems().size()));

  // One process fails before a message that the others would wait for.
  EXPECT_EQ(SharedText([&] {
              groups.run([&](int problem) {
                ves::together(groups.comm(), [&] {
                  if (isLast && problem == 5) throw std::runtime_error("told to");
                });
                MPI_Barrier(groups.comm());
              });
            }),
            "problem 5: told to");
  EXPECT_EQ(groups.run([](int problem) { return problem; }).back(), n - 1);
}

/// Takes no more than one character.
struct FullBuffer : std::streambuf {
  int overflow(int) override { throw std::runtime_error("full"); }
};

TEST(VesGroupsProgress, AllMessagesAreReceived) {
  std::ostringstream lines;
  FullBuffer full;
  std::ostream broken(&full);
  broken.exceptions(std::ios::badbit);
  const bool isZero = RankIn(world) == 0;
  for (std::ostream* stream : {static_cast<std::ostream*>(&lines), &broken})
    for (const int failing : {-1, 7}) {
      ves::GroupOptions options = Into(4);
      options.progress = isZero ? stream : nullptr;
      options.name = "k points";
      const ves::Groups groups(world, 30, options);
      sent = received = 0;
      const std::string text = SharedText([&] {
        groups.run([&](int problem) {
          if (problem == failing) throw std::runtime_error("told to");
        });
      });
      EXPECT_EQ(text, failing < 0 ? "nothing" : "problem 7: told to");
      EXPECT_EQ(SumOver(world, sent), SumOver(world, received));
      const bool speaks = RankIn(groups.comm()) == 0;
      int done = 0;
      for (const int problem : groups.problems())
        done += speaks && (problem < failing || !Has(groups, failing)) ? 1 : 0;
      const std::string end = "k points " + std::to_string(SumOver(world, done)) + " of 30 done";
      const bool isShown = isZero && stream == &lines;
      EXPECT_EQ(lines.str().find(end) != std::string::npos, isShown) << lines.str();
      EXPECT_EQ(lines.str().find('\r'), std::string::npos);
      lines.str("");
    }
}

/// While process 0 is busy, no group sends more than one message, and none waits for it.
TEST(VesGroupsProgress, NothingPilesUp) {
  const int others = SizeOf(world) - 1;
  std::ostringstream lines;
  ves::GroupOptions options;
  options.progress = &lines;
  options.costs.assign(100, 1.0);
  options.costs[0] = 1000.0; // makes problem 0 the only one of process 0
  const ves::Groups groups(world, 100, options);
  sent = 0;
  groups.run([&](int problem) {
    int end = 0;
    if (others > 0 && problem == 0)
      for (int other = 1; other <= others; ++other)
        MPI_Recv(&end, 1, MPI_INT, other, 0, world, MPI_STATUS_IGNORE);
    else if (others > 0 && problem == groups.problems().back())
      MPI_Send(&end, 1, MPI_INT, 0, 0, world);
  });
  EXPECT_LE(sent, 3);
  EXPECT_EQ(lines.str().find("100 of 100 done") != std::string::npos, RankIn(world) == 0);
}

} // namespace
