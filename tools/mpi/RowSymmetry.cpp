#include "tools/mpi/RowSymmetry.h"

#include "tools/mpi/Exchange.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

namespace orx::mpi {
namespace {

using tool::MirroredPair;
using tool::Symmetry;
using Entry = ORXSrvSparseMatrixEntry;

constexpr std::int64_t mostReceived = 1 << 20;

std::uint64_t Mix(std::uint64_t x) noexcept {
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
  return x ^ (x >> 31);
}

/// A number that depends on each bit of the position and of the value.
std::uint64_t HashOf(int row, int column, double value) noexcept {
  std::uint64_t const position =
      std::uint64_t{static_cast<std::uint32_t>(row)} << 32 | static_cast<std::uint32_t>(column);
  return Mix(Mix(position + 0x9e3779b97f4a7c15ull) + std::bit_cast<std::uint64_t>(value));
}

bool IsBefore(Entry const& a, Entry const& b) { return a.row != b.row ? a.row < b.row : a.column < b.column; }

void KeepFirst(std::optional<Entry>& first, Entry const& entry) {
  if (!first || IsBefore(entry, *first)) first = entry;
}

void ScanEntry(int row, int column, double value, EntryScan& scan) {
  scan.lower += row > column ? 1 : 0;
  scan.diagonal += row == column ? 1 : 0;
  scan.upper += row < column ? 1 : 0;
  Entry const entry{static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value};
  if (!std::isfinite(value)) {
    ++scan.notFinite;
    KeepFirst(scan.firstNotFinite, entry);
  }
  if (row == column || value == 0.0) return;
  if (!scan.firstBesideDiagonal || scan.firstBesideDiagonal->row == entry.row)
    KeepFirst(scan.firstBesideDiagonal, entry);
  scan.sumOfEntries += HashOf(row, column, value);
  scan.sumOfMirrored += HashOf(column, row, value);
}

void Add(EntryScan const& from, EntryScan& to) {
  to.entries += from.entries;
  to.lower += from.lower;
  to.diagonal += from.diagonal;
  to.upper += from.upper;
  to.notFinite += from.notFinite;
  if (!to.firstNotFinite) to.firstNotFinite = from.firstNotFinite;
  if (!to.firstBesideDiagonal) to.firstBesideDiagonal = from.firstBesideDiagonal;
  to.sumOfEntries += from.sumOfEntries;
  to.sumOfMirrored += from.sumOfMirrored;
}

// Comparison of mirrored entries

/// One of two mirrored entries, at the rank that has the row of the one below the diagonal.
struct Half {
  std::int32_t row; ///< that of the entry below the diagonal, also for its mirror image
  std::int32_t column;
  std::int32_t isUpper;
  double value;
};

/// A pair, or what there is of it. What is not stored counts as 0.
struct StoredPair {
  MirroredPair pair;
  bool isWhole;
};

/// All entries of the rows of this rank below the diagonal, with their mirror images.
class OwnPairs {
public:
  OwnPairs(SplitRows const& rows, Ranks const& ranks)
      : m_ranks(ranks), m_order(std::max(rows.rows, rows.columns)), m_own(ranks.OwnShare(m_order)) {
    GatherHalves(rows);
    m_ranks.OnEach([&] {
      std::ranges::sort(m_halves, {},
                        [](Half const& h) { return std::pair(std::pair(h.row, h.column), h.isUpper); });
    });
    GatherDiagonal(rows);
  }

  Range Own() const { return m_own; }
  std::vector<double> const& Diagonal() const { return m_diagonal; }

  /// Calls visit(StoredPair) by rows, then columns.
  template<class Visit>
  void ForEach(Visit visit) const {
    for (std::size_t k = 0; k < m_halves.size(); ++k) {
      Half const& half = m_halves[k];
      StoredPair pair{
          {static_cast<std::uint32_t>(half.row), static_cast<std::uint32_t>(half.column), 0.0, 0.0}, false};
      (half.isUpper != 0 ? pair.pair.upper : pair.pair.lower) = half.value;
      if (k + 1 < m_halves.size() && m_halves[k + 1].row == half.row &&
          m_halves[k + 1].column == half.column) {
        pair.pair.upper = m_halves[++k].value;
        pair.isWhole = true;
      }
      visit(pair);
    }
  }

  /// sqrt |a(j,j)| of all columns j that the pairs have, in their order without repetition.
  std::vector<std::pair<int, double>> RootsOfColumns() const;

private:
  void GatherHalves(SplitRows const& rows);
  void GatherDiagonal(SplitRows const& rows);

  Ranks const& m_ranks;
  int m_order;
  Range m_own;
  std::vector<Half> m_halves;
  std::vector<double> m_diagonal; ///< of the own rows; 0 where nothing is stored
};

/// Sends what `pick` makes of the entries to the ranks that it names: pick(row, column, value, send).
template<class Record, class Pick, class Receive>
void ExchangeEntries(SplitRows const& rows, Ranks const& ranks, Pick pick, Receive receive) {
  // Whole rows in each round: they are short beside what a round may have.
  std::int64_t const round = RecordsOfRound(ranks, mostReceived);
  int row = 0;
  Exchange<Record>(
      ranks,
      [&](Outbox<Record>& outbox) {
        std::int64_t sent = 0;
        auto const send = [&](int rank, Record const& record) {
          outbox[static_cast<std::size_t>(rank)].push_back(record);
          ++sent;
        };
        for (; row < rows.own.count && sent < round; ++row)
          ForEachEntryOfRow(rows, row, [&](int i, int j, double value) { pick(i, j, value, send); });
        return row < rows.own.count;
      },
      receive);
}

void OwnPairs::GatherHalves(SplitRows const& rows) {
  ExchangeEntries<Half>(
      rows, m_ranks,
      [&](int row, int column, double value, auto const& send) {
        if (row == column) return;
        int const lowerRow = std::max(row, column);
        send(m_ranks.OwnerOf(lowerRow, m_order),
             {lowerRow, std::min(row, column), row < column ? 1 : 0, value});
      },
      [&](Half const& half) { m_halves.push_back(half); });
}

void OwnPairs::GatherDiagonal(SplitRows const& rows) {
  m_diagonal.assign(static_cast<std::size_t>(m_own.count), 0.0);
  ExchangeEntries<Half>(
      rows, m_ranks,
      [&](int row, int column, double value, auto const& send) {
        if (row == column) send(m_ranks.OwnerOf(row, m_order), {row, column, 0, value});
      },
      [&](Half const& half) { m_diagonal[half.row - m_own.first] = half.value; });
}

std::vector<std::pair<int, double>> OwnPairs::RootsOfColumns() const {
  struct Request {
    std::int32_t column, from;
    double root;
  };
  std::vector<std::pair<int, double>> roots;
  ForEach([&](StoredPair const& p) { roots.emplace_back(static_cast<int>(p.pair.column), 0.0); });
  std::ranges::sort(roots);
  roots.erase(std::unique(roots.begin(), roots.end()), roots.end());

  std::int64_t const round = RecordsOfRound(m_ranks, mostReceived);
  std::vector<Request> requests;
  std::size_t next = 0;
  Exchange<Request>(
      m_ranks,
      [&](Outbox<Request>& outbox) {
        for (std::int64_t sent = 0; sent < round && next < roots.size(); ++sent, ++next)
          outbox[static_cast<std::size_t>(m_ranks.OwnerOf(roots[next].first, m_order))].push_back(
              {roots[next].first, m_ranks.Rank(), 0.0});
        return next < roots.size();
      },
      [&](Request const& request) { requests.push_back(request); });
  next = 0;
  Exchange<Request>(
      m_ranks,
      [&](Outbox<Request>& outbox) {
        for (std::int64_t sent = 0; sent < round && next < requests.size(); ++sent, ++next) {
          Request reply = requests[next];
          double const value = m_diagonal[reply.column - m_own.first];
          reply.root = std::isfinite(value) ? std::sqrt(std::fabs(value)) : 0.0;
          outbox[static_cast<std::size_t>(reply.from)].push_back(reply);
        }
        return next < requests.size();
      },
      [&](Request const& reply) {
        std::ranges::lower_bound(roots, reply.column, {}, &std::pair<int, double>::first)->second =
            reply.root;
      });
  return roots;
}

Symmetry::Form FormOf(EntryScan const& scan) {
  if (scan.lower > 0 && scan.upper > 0) return Symmetry::Form::BothTriangles;
  if (scan.lower > 0) return Symmetry::Form::LowerTriangle;
  return scan.upper > 0 ? Symmetry::Form::UpperTriangle : Symmetry::Form::Diagonal;
}

/// What this rank's pairs show.
void ComparePairs(OwnPairs const& pairs, std::vector<std::pair<int, double>> const& roots,
                  Symmetry& symmetry) {
  pairs.ForEach([&](StoredPair const& p) {
    double const diagonal = pairs.Diagonal()[static_cast<int>(p.pair.row) - pairs.Own().first];
    double const rootOfRow = std::isfinite(diagonal) ? std::sqrt(std::fabs(diagonal)) : 0.0;
    auto const column =
        std::ranges::lower_bound(roots, static_cast<int>(p.pair.column), {}, &std::pair<int, double>::first);
    tool::ComparePair(p.pair, !p.isWhole, rootOfRow * column->second, symmetry);
  });
}

} // namespace

EntryScan Scan(SplitRows const& rows, Ranks const& ranks) {
  EntryScan own;
  own.entries = rows.Entries();
  ForEachEntry(rows, [&](int row, int column, double value) { ScanEntry(row, column, value, own); });
  EntryScan all;
  for (EntryScan const& scan : ranks.Gathered(own))
    Add(scan, all);
  return all;
}

tool::Symmetry MeasureSymmetry(SplitRows const& rows, EntryScan const& scan, Ranks const& ranks) {
  Symmetry symmetry;
  symmetry.form = FormOf(scan);
  symmetry.lowerEntries = scan.lower;
  symmetry.diagonalEntries = scan.diagonal;
  symmetry.upperEntries = scan.upper;
  if (symmetry.form != Symmetry::Form::BothTriangles || scan.AreMirrored()) return symmetry;

  OwnPairs const pairs(rows, ranks);
  std::vector<std::pair<int, double>> const roots = pairs.RootsOfColumns();
  Symmetry own;
  ComparePairs(pairs, roots, own);
  for (Symmetry const& s : ranks.Gathered(own)) {
    if (s.worstDifference > symmetry.worstDifference) {
      symmetry.worstDifference = s.worstDifference;
      symmetry.worst = s.worst;
    }
    symmetry.unmatchedEntries += s.unmatchedEntries;
    if (!symmetry.unmatched) symmetry.unmatched = s.unmatched;
  }
  return symmetry;
}

SplitRows Averaged(SplitRows rows, Ranks const& ranks) {
  RowShare share;
  share.rows = share.columns = rows.rows;
  share.own = rows.own;
  share.isSymmetric = true;
  OwnPairs const pairs(std::exchange(rows, {}), ranks);
  ranks.OnEach([&] {
    std::int64_t count = 0;
    share.rowPointers.assign(static_cast<std::size_t>(share.own.count) + 1, 0);
    pairs.ForEach([&](StoredPair const& p) {
      ++share.rowPointers[static_cast<int>(p.pair.row) - share.own.first + 1];
      ++count;
    });
    std::partial_sum(share.rowPointers.begin(), share.rowPointers.end(), share.rowPointers.begin());
    RowPiece& piece = share.pieces.emplace_back(count);
    std::int64_t next = 0;
    pairs.ForEach([&](StoredPair const& p) {
      piece.columns[next] = static_cast<std::int32_t>(p.pair.column);
      piece.values[next++] = std::midpoint(p.pair.lower, p.pair.upper);
    });
    share.diagonal = pairs.Diagonal();
  });
  return Split(std::move(share), ranks);
}

} // namespace orx::mpi
