#pragma once

#include "tools/mpi/Ranks.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

namespace orx::mpi {

/// Records for each rank.
template<class Record>
using Outbox = std::vector<std::vector<Record>>;

/// Records that a rank sends in one round, when `most` fit into the memory of one, should it be that all are
/// for that one.
inline std::int64_t RecordsOfRound(Ranks const& ranks, std::int64_t most) {
  return std::max<std::int64_t>(1, most / ranks.Count());
}

/// Sends plain records to the ranks that they are for, in rounds. `fill(outbox)` adds about RecordsOfRound of
/// them and returns true when there are more; `receive(record)` gets those for this rank, in the order of the
/// ranks that sent them, and of each rank in the order in which it added them. Collective.
template<class Record, class Fill, class Receive>
void Exchange(Ranks const& ranks, Fill fill, Receive receive) {
  auto const count = static_cast<std::size_t>(ranks.Count());
  MPI_Datatype type = MPI_DATATYPE_NULL;
  MPI_Type_contiguous(static_cast<int>(sizeof(Record)), MPI_BYTE, &type);
  MPI_Type_commit(&type);
  Outbox<Record> outbox(count);
  std::vector<Record> sent, received;
  std::vector<int> sentCounts(count), receivedCounts(count), sentFirst(count), receivedFirst(count);
  for (bool hasMore = true; hasMore;) {
    ranks.OnEach([&] {
      hasMore = fill(outbox);
      sent.clear();
      for (std::size_t rank = 0; rank < count; ++rank) {
        sentCounts[rank] = static_cast<int>(outbox[rank].size());
        sent.insert(sent.end(), outbox[rank].begin(), outbox[rank].end());
        outbox[rank].clear();
      }
    });
    MPI_Alltoall(sentCounts.data(), 1, MPI_INT, receivedCounts.data(), 1, MPI_INT, ranks.Communicator());
    std::exclusive_scan(sentCounts.begin(), sentCounts.end(), sentFirst.begin(), 0);
    std::exclusive_scan(receivedCounts.begin(), receivedCounts.end(), receivedFirst.begin(), 0);
    auto const all =
        static_cast<std::size_t>(receivedFirst.back()) + static_cast<std::size_t>(receivedCounts.back());
    ranks.OnEach([&] { received.resize(all); });
    MPI_Alltoallv(sent.data(), sentCounts.data(), sentFirst.data(), type, received.data(),
                  receivedCounts.data(), receivedFirst.data(), type, ranks.Communicator());
    for (Record const& record : received)
      receive(record);
    hasMore = !ranks.AreAll(!hasMore);
  }
  MPI_Type_free(&type);
}

} // namespace orx::mpi
