#ifndef VES_PARALLEL_MESSAGES_H
#define VES_PARALLEL_MESSAGES_H

#include "../kernel/in_pieces.h"

#include <cstddef>
#include <limits>
#include <mpi.h>

namespace Ves {

/// What an int counts: more numbers take several calls of MPI.
constexpr std::size_t mostOfMessage = std::numeric_limits<int>::max();

/// Calls send(start, count) for all entries of an array, as many at once as a message has; the same
/// calls on all processes, and one where there are no entries. send returns a code of MPI.
/// \return the first code that is none of success
template <typename Send>
int InMessages(void* data, std::size_t entries, MPI_Datatype type, Send send,
               std::size_t most = mostOfMessage) {
  if (entries == 0) return send(data, 0);
  int size = 0, result = MPI_SUCCESS;
  MPI_Type_size(type, &size);
  InPieces(entries, most, [&](std::size_t first, std::size_t count) {
    char* const start = static_cast<char*>(data) + first * static_cast<std::size_t>(size);
    const int code = send(static_cast<void*>(start), static_cast<int>(count));
    if (result == MPI_SUCCESS) result = code;
  });
  return result;
}

} // namespace Ves

#endif
