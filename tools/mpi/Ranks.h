#pragma once

#include "tools/terminal/ToolError.h"

#include <mpi.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orx::mpi {

/// Consecutive rows or columns of a matrix that belong to one rank.
struct Range {
  int first = 0;
  int count = 0;

  int End() const noexcept { return first + count; }
  bool Has(int position) const noexcept { return position >= first && position < End(); }
};

/// The processes that work together, each with a number from 0, its rank. Rank 0 is the root, which reads
/// what only one can read, and prints.
///
/// Work of one rank that needs no other runs inside OnEach or OnRoot: an error of it becomes the same error
/// on all ranks. All other calls are collective: each rank makes them in the same order.
class Ranks {
public:
  /// The communicator stays the caller's.
  explicit Ranks(MPI_Comm communicator);
  Ranks(Ranks const&) = delete;
  Ranks& operator=(Ranks const&) = delete;
  ~Ranks();

  int Rank() const noexcept { return m_rank; }
  int Count() const noexcept { return m_count; }
  bool IsRoot() const noexcept { return m_rank == 0; }
  MPI_Comm Communicator() const noexcept { return m_communicator; }

  // Work without communication

  /// An exception of any rank is a ToolError of all: that of the first rank that has one.
  void OnEach(std::function<void()> const& work) const;
  /// The same of work of the root.
  void OnRoot(std::function<void()> const& work) const;

  // Shares of rows

  /// The equal shares that PETSc makes of `length` rows: the first ranks have one more.
  Range ShareOf(int rank, int length) const noexcept;
  Range OwnShare(int length) const noexcept { return ShareOf(m_rank, length); }
  int OwnerOf(int row, int length) const noexcept;

  // Values of all ranks

  std::int64_t Sum(std::int64_t value) const;
  double Sum(double value) const;
  std::int64_t Largest(std::int64_t value) const;
  double Largest(double value) const;
  bool AreAll(bool condition) const { return Largest(std::int64_t{condition ? 0 : 1}) == 0; }
  /// The root's values, of which there may be any number.
  void Broadcast(std::string& text) const;
  template<class T>
  void Broadcast(T& plain) const {
    MPI_Bcast(&plain, static_cast<int>(sizeof plain), MPI_BYTE, 0, m_communicator);
  }
  /// The values of all ranks behind one another, on each rank. REQUIRES plain data.
  template<class T>
  std::vector<T> Gathered(T const& own) const {
    std::vector<T> all(static_cast<std::size_t>(m_count));
    MPI_Allgather(&own, static_cast<int>(sizeof own), MPI_BYTE, all.data(), static_cast<int>(sizeof own),
                  MPI_BYTE, m_communicator);
    return all;
  }

  // The end

  /// After an error that ended the work of this rank: true when all ranks have one, so that they can end
  /// together; `speaker` is then the one that says it. It is known of an error of OnEach. After any other one
  /// the ranks wait for each other for two seconds: false when some do not come, because they wait in an
  /// operation that this rank has left.
  bool Meet(int& speaker) const;

private:
  MPI_Comm m_communicator;
  MPI_Comm m_meeting; ///< of the same ranks, on which nothing else is ever sent
  int m_rank = 0;
  int m_count = 1;
  mutable bool m_isErrorShared = false;
};

} // namespace orx::mpi
