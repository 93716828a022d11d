#include "tools/mpi/SparseDrawer.h"

#include "tools/terminal/Text.h"

#include "file/RunningChecksum.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace orx::mpi {
namespace {

using file::RunningChecksum;
using tool::ExitCode;
using tool::Format;
using tool::ToolError;

[[noreturn]] void Refuse(StoredArray const& array, std::string const& fault) {
  throw ToolError(ExitCode::UnusableInput, array.Name() + ": " + fault);
}

void RequireLength(StoredArray const& array, std::int64_t expected) {
  if (array.Length() == expected) return;
  Refuse(array, "has " + std::to_string(array.Length()) + " elements, expected " + std::to_string(expected));
}

template<class T>
void AddTo(RunningChecksum& sum, T const* values, std::int64_t count) {
  sum.Add(values, static_cast<std::size_t>(count) * sizeof(T));
}

/// The checksums of arrays go from rank to rank; each adds the bytes that it has, and goes on with the next
/// array while the others do the same. The last rank compares.
class ChecksumRelay {
public:
  explicit ChecksumRelay(Ranks const& ranks) : m_ranks(ranks), m_isLast(ranks.Rank() + 1 == ranks.Count()) {}

  void Pass(StoredArray const& array, std::function<void(RunningChecksum&)> const& addOwn) {
    if (!array.Checksum()) return;
    RunningChecksum sum;
    int const own = m_ranks.Rank();
    if (own > 0) MPI_Recv(&sum, sizeof sum, MPI_BYTE, own - 1, 0, m_ranks.Communicator(), MPI_STATUS_IGNORE);
    addOwn(sum);
    if (!m_isLast) MPI_Send(&sum, sizeof sum, MPI_BYTE, own + 1, 0, m_ranks.Communicator());
    m_sums.emplace_back(&array, sum.Value());
  }

  /// Refuses the first array that does not have its checksum.
  void Compare() const {
    m_ranks.OnEach([&] {
      for (auto const& [array, sum] : m_sums)
        if (m_isLast && sum != *array->Checksum()) RefuseChecksum(*array, sum);
    });
  }

private:
  [[noreturn]] static void RefuseChecksum(StoredArray const& array, std::uint64_t sum) {
    Refuse(array,
           Format("its checksum is %016llx, expected %016llx, with which it was written",
                  static_cast<unsigned long long>(sum), static_cast<unsigned long long>(*array.Checksum())));
  }

  Ranks const& m_ranks;
  bool const m_isLast;
  std::vector<std::pair<StoredArray const*, std::uint64_t>> m_sums;
};

/// The arrays of one drawer.
class SparseDrawer {
public:
  SparseDrawer(ParallelFile const& file, SparsePlace const& place, Ranks const& ranks, std::int64_t piece)
      : m_place(place), m_ranks(ranks), m_piece(piece), m_values(file.Open(place.drawer + "/data")),
        m_columns(file.Open(place.drawer + "/ir")), m_pointers(file.Open(place.drawer + "/jc")) {
    if (place.isSymmetric) m_diagonal.emplace(file.Open(place.drawer + "/diagonal"));
    m_ranks.OnEach([&] { RequireLengths(); });
  }

  RowShare Read() {
    m_share.rows = m_place.rows;
    m_share.columns = m_place.columns;
    m_share.isSymmetric = m_place.isSymmetric;
    m_share.own = m_ranks.OwnShare(m_place.rows);
    m_ranks.OnEach([&] { ReadPointers(); });
    m_ranks.OnEach([&] { ReadEntries(); });
    CompareChecksums();
    for (std::int32_t& pointer : m_share.rowPointers)
      pointer = static_cast<std::int32_t>(pointer - m_first);
    return std::move(m_share);
  }

private:
  void RequireLengths() const {
    if (m_values.Length() > std::numeric_limits<std::int32_t>::max())
      Refuse(m_values, "has " + std::to_string(m_values.Length()) + " elements, more than 32 bits count");
    RequireLength(m_columns, m_values.Length());
    RequireLength(m_pointers, std::int64_t{m_place.rows} + 1);
    if (m_diagonal) RequireLength(*m_diagonal, m_place.rows);
  }

  /// The pointer behind the last own row is the first of the next rank, so that no pair is left unlooked at.
  void ReadPointers() {
    Range const own = m_share.own;
    std::vector<std::int32_t>& pointers = m_share.rowPointers;
    pointers.resize(static_cast<std::size_t>(own.count) + 1);
    m_pointers.Read(own.first, std::ssize(pointers), pointers.data());
    if (own.first == 0 && pointers.front() != 0)
      Refuse(m_pointers, Format("the first row start is %d, expected 0", pointers.front()));
    for (int i = 0; i < own.count; ++i)
      if (pointers[i + 1] < pointers[i])
        Refuse(m_pointers, Format("the row starts decrease from %d to %d at row %d", pointers[i],
                                  pointers[i + 1], own.first + i));
    std::int64_t const entries = m_values.Length();
    if (pointers.back() > entries || (own.End() == m_place.rows && pointers.back() != entries))
      Refuse(m_pointers, Format("the last row start is %d, expected the number of stored entries, %lld",
                                pointers.back(), static_cast<long long>(entries)));
    m_first = pointers.front();
  }

  void ReadEntries() {
    std::int64_t const end = m_share.rowPointers.back();
    for (std::int64_t at = m_first; at < end; at += m_piece) {
      RowPiece& piece = m_share.pieces.emplace_back(std::min(m_piece, end - at));
      m_columns.Read(at, piece.Entries(), piece.columns.Data());
      m_values.Read(at, piece.Entries(), piece.values.Data());
      RequireColumns(piece, at);
      if (m_ranks.IsRoot()) AddToSums(piece);
    }
    if (!m_diagonal) return;
    m_share.diagonal.resize(static_cast<std::size_t>(m_share.own.count));
    m_diagonal->Read(m_share.own.first, m_share.own.count, m_share.diagonal.data());
  }

  void RequireColumns(RowPiece const& piece, std::int64_t first) const {
    std::span<std::int32_t const> const columns(piece.columns.Data(),
                                                static_cast<std::size_t>(piece.Entries()));
    int isAnyBad = 0; // a loop without ways out is made of vector instructions
    for (std::int32_t const column : columns)
      isAnyBad |= static_cast<int>(column < 0) | static_cast<int>(column >= m_place.columns);
    if (isAnyBad == 0) return;
    auto const bad = std::ranges::find_if(
        columns, [&](std::int32_t column) { return column < 0 || column >= m_place.columns; });
    Refuse(m_columns, "entry " + std::to_string(first + (bad - columns.begin())) +
                          Format(" has column %d, expected 0 to %d", *bad, m_place.columns - 1));
  }

  void AddToSums(RowPiece const& piece) {
    AddTo(m_sumOfColumns, piece.columns.Data(), piece.Entries());
    AddTo(m_sumOfValues, piece.values.Data(), piece.Entries());
  }

  /// The root has its sums already: nothing comes before its entries, so that it has added each piece while
  /// the processor's caches had it.
  void CompareChecksums() const {
    ChecksumRelay relay(m_ranks);
    relay.Pass(m_pointers, [&](RunningChecksum& sum) {
      bool const isLast = m_ranks.Rank() + 1 == m_ranks.Count();
      AddTo(sum, m_share.rowPointers.data(), m_share.own.count + (isLast ? 1 : 0));
    });
    relay.Pass(m_columns, [&](RunningChecksum& sum) {
      if (m_ranks.IsRoot()) {
        sum = m_sumOfColumns;
        return;
      }
      for (RowPiece const& piece : m_share.pieces)
        AddTo(sum, piece.columns.Data(), piece.Entries());
    });
    relay.Pass(m_values, [&](RunningChecksum& sum) {
      if (m_ranks.IsRoot()) {
        sum = m_sumOfValues;
        return;
      }
      for (RowPiece const& piece : m_share.pieces)
        AddTo(sum, piece.values.Data(), piece.Entries());
    });
    if (m_diagonal)
      relay.Pass(*m_diagonal,
                 [&](RunningChecksum& sum) { AddTo(sum, m_share.diagonal.data(), m_share.own.count); });
    relay.Compare();
  }

  SparsePlace const& m_place;
  Ranks const& m_ranks;
  std::int64_t const m_piece;
  StoredArray m_values, m_columns, m_pointers;
  std::optional<StoredArray> m_diagonal;
  RowShare m_share;
  RunningChecksum m_sumOfColumns, m_sumOfValues; ///< of the root's entries
  std::int64_t m_first = 0;                      ///< the first own entry, among those of the file
};

} // namespace

RowShare ReadSparseDrawer(ParallelFile const& file, SparsePlace const& place, Ranks const& ranks,
                          std::int64_t piece) {
  return SparseDrawer(file, place, ranks, piece).Read();
}

} // namespace orx::mpi
