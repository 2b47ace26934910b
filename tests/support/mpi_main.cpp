// Runs the tests of a binary on every process: process 0 speaks, a failure anywhere fails all.
#include <gtest/gtest.h>
#include <mpi.h>

#include <cstdio>
#include <string>

namespace {

/// Names the failing process, since only process 0 keeps the usual printer.
class FailurePrinter : public testing::EmptyTestEventListener {
public:
  explicit FailurePrinter(int rank) : m_rank(rank) {}
  void OnTestStart(const testing::TestInfo& info) override {
    m_test = std::string(info.test_suite_name()) + "." + info.name();
  }
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (!result.failed()) return;
    std::fprintf(stderr, "process %d, %s, %s:%d\n%s\n", m_rank, m_test.c_str(), result.file_name(),
                 result.line_number(), result.summary());
  }

private:
  int m_rank;
  std::string m_test;
};

} // namespace

int main(int argc, char** argv) {
  int level = MPI_THREAD_SINGLE;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &level);
  testing::InitGoogleTest(&argc, argv);
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  if (rank != 0) {
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new FailurePrinter(rank));
  }
  int failures = RUN_ALL_TESTS();
  MPI_Allreduce(MPI_IN_PLACE, &failures, 1, MPI_INT, MPI_SUM, MPI_COMM_WORLD);
  if (rank == 0 && failures != 0) std::printf("FAILED on at least one process\n");
  MPI_Finalize();
  return failures == 0 ? 0 : 1;
}
