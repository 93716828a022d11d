#include "tools/mpi/Info.h"

#include "tools/mpi/Exchange.h"
#include "tools/mpi/SourceOnRanks.h"

#include "tools/commands/Info.h"

#include <algorithm>
#include <cmath>

namespace orx::mpi {
namespace {

using tool::Measures;
using Entry = ORXSrvSparseMatrixEntry;

/// A sum as exact as that of the library's norms, of which several can be added.
struct CompensatedSum {
  double sum = 0.0, lost = 0.0;

  void Add(double value) noexcept {
    double const before = sum;
    sum += value;
    lost += std::fabs(before) >= std::fabs(value) ? (before - sum) + value : (value - sum) + before;
  }
  void Add(CompensatedSum const& other) noexcept {
    Add(other.sum);
    lost += other.lost;
  }
  double Value() const noexcept { return std::isfinite(sum) ? sum + lost : sum; }
};

double FinitePart(double value) { return std::isfinite(value) ? value : 0.0; }

/// The matrix of all ranks as one of them sees it.
class RowMeasures {
public:
  RowMeasures(SplitRows const& rows, EntryScan const& scan, Ranks const& ranks)
      : m_rows(rows), m_ranks(ranks) {
    m_measures.notFinite = scan.notFinite;
    if (scan.firstNotFinite) m_measures.firstNotFinite = *scan.firstNotFinite;
  }

  Measures Result() {
    MeasurePositions();
    FindLargest();
    m_measures.normFrobenius = FrobeniusNorm();
    MeasureRows();
    MeasureColumns();
    return m_measures;
  }

private:
  void MeasurePositions() {
    ForEachEntry(m_rows, [&](int row, int column, double value) {
      m_measures.lowerBandwidth = std::max(m_measures.lowerBandwidth, row - column);
      m_measures.upperBandwidth = std::max(m_measures.upperBandwidth, column - row);
      m_measures.storedZeros += value == 0.0 ? 1 : 0;
    });
    m_measures.lowerBandwidth = static_cast<int>(m_ranks.Largest(std::int64_t{m_measures.lowerBandwidth}));
    m_measures.upperBandwidth = static_cast<int>(m_ranks.Largest(std::int64_t{m_measures.upperBandwidth}));
    m_measures.storedZeros = m_ranks.Sum(m_measures.storedZeros);
  }

  void FindLargest() {
    Entry own{0, 0, 0.0};
    ForEachEntry(m_rows, [&](std::uint32_t row, std::uint32_t column, double value) {
      double const magnitude = std::fabs(FinitePart(value)), largest = std::fabs(own.value);
      bool const isBeforeInRow =
          magnitude == largest && magnitude > 0.0 && row == own.row && column < own.column;
      if (magnitude > largest || isBeforeInRow) own = {row, column, value};
    });
    for (Entry const& entry : m_ranks.Gathered(own))
      if (std::fabs(entry.value) > std::fabs(m_measures.largest.value)) m_measures.largest = entry;
  }

  double FrobeniusNorm() const {
    double const largest = std::fabs(m_measures.largest.value);
    if (largest == 0.0) return 0.0;
    CompensatedSum own, all;
    ForEachEntry(m_rows, [&](int, int, double value) {
      double const scaled = FinitePart(value) / largest;
      own.Add(scaled * scaled);
    });
    for (CompensatedSum const& sum : m_ranks.Gathered(own))
      all.Add(sum);
    return largest * std::sqrt(all.Value());
  }

  void MeasureRows() {
    std::vector<int> zeros;
    for (int row = 0; row < m_rows.own.count; ++row) {
      CompensatedSum sum;
      bool isUsed = false;
      ForEachEntryOfRow(m_rows, row, [&](int, int, double value) {
        sum.Add(std::fabs(FinitePart(value)));
        isUsed = isUsed || value != 0.0;
      });
      m_measures.normInfinity = std::max(m_measures.normInfinity, sum.Value());
      if (!isUsed) zeros.push_back(m_rows.own.first + row);
    }
    m_measures.normInfinity = m_ranks.Largest(m_measures.normInfinity);
    m_measures.zeroRows = GatheredOnRoot(zeros);
  }

  struct ColumnSum {
    std::int32_t column;
    std::int32_t isUsed;
    CompensatedSum sum;

    void Add(double value) {
      sum.Add(std::fabs(FinitePart(value)));
      isUsed |= value != 0.0 ? 1 : 0;
    }
    void Add(ColumnSum const& other) {
      sum.Add(other.sum);
      isUsed |= other.isUsed;
    }
  };

  /// Each rank has the sums of its columns; what other ranks have in them comes from these.
  void MeasureColumns() {
    std::vector<ColumnSum> own = OwnColumnSums();
    std::vector<ColumnSum> const others = SumsOfOthersColumns();
    std::size_t next = 0;
    Exchange<ColumnSum>(
        m_ranks,
        [&](Outbox<ColumnSum>& outbox) {
          std::int64_t left = RecordsOfRound(m_ranks, 1 << 20);
          for (; left > 0 && next < others.size(); --left, ++next)
            outbox[static_cast<std::size_t>(m_ranks.OwnerOf(others[next].column, m_rows.columns))].push_back(
                others[next]);
          return next < others.size();
        },
        [&](ColumnSum const& sum) { own[sum.column - m_rows.ownColumns.first].Add(sum); });
    std::vector<int> zeros;
    for (ColumnSum const& sum : own) {
      m_measures.norm1 = std::max(m_measures.norm1, sum.sum.Value());
      if (sum.isUsed == 0) zeros.push_back(sum.column);
    }
    m_measures.norm1 = m_ranks.Largest(m_measures.norm1);
    m_measures.zeroColumns = GatheredOnRoot(zeros);
  }

  std::vector<ColumnSum> OwnColumnSums() const {
    std::vector<ColumnSum> sums(static_cast<std::size_t>(m_rows.ownColumns.count));
    for (int j = 0; j < m_rows.ownColumns.count; ++j)
      sums[j] = {m_rows.ownColumns.first + j, 0, {}};
    SplitRows::Block const& inside = m_rows.inside;
    for (PetscInt k = 0; k < inside.pointers[m_rows.own.count]; ++k)
      sums[inside.columns[k]].Add(inside.values[k]);
    return sums;
  }

  std::vector<ColumnSum> SumsOfOthersColumns() const {
    SplitRows::Block const& outside = m_rows.outside;
    PetscInt const count = outside.pointers[m_rows.own.count];
    std::vector<int> columns(outside.columns.Data(), outside.columns.Data() + count);
    std::ranges::sort(columns);
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    std::vector<ColumnSum> sums(columns.size());
    std::ranges::transform(columns, sums.begin(), [](int column) { return ColumnSum{column, 0, {}}; });
    for (PetscInt k = 0; k < count; ++k)
      std::ranges::lower_bound(sums, outside.columns[k], {}, &ColumnSum::column)->Add(outside.values[k]);
    return sums;
  }

  std::vector<int> GatheredOnRoot(std::vector<int> const& own) const {
    std::vector<int> counts = m_ranks.Gathered(static_cast<int>(own.size()));
    std::vector<int> first(counts.size(), 0);
    std::exclusive_scan(counts.begin(), counts.end(), first.begin(), 0);
    std::vector<int> all(m_ranks.IsRoot() ? static_cast<std::size_t>(first.back() + counts.back()) : 0);
    MPI_Gatherv(own.data(), static_cast<int>(own.size()), MPI_INT, all.data(), counts.data(), first.data(),
                MPI_INT, 0, m_ranks.Communicator());
    return all;
  }

  SplitRows const& m_rows;
  Ranks const& m_ranks;
  Measures m_measures;
};

} // namespace

std::string InfoText(std::string const& file, Ranks const& ranks) {
  std::string text;
  if (!IsReadByAll(file, ranks)) {
    ranks.OnRoot([&] { text = tool::InfoText(file); });
    return text;
  }
  SourceOnRanks const source("", file, ranks);
  Measures const measures = RowMeasures(source.Rows(), source.Entries(), ranks).Result();
  tool::SourceFacts facts = source.Facts();
  facts.path = file;
  return tool::InfoText(facts, measures);
}

} // namespace orx::mpi
