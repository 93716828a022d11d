#include "tools/mpi/SourceOnRanks.h"

#include "tools/mpi/SparseDrawer.h"

#include "tools/formats/DatabaseMatrix.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <fstream>
#include <string_view>
#include <utility>

namespace orx::mpi {

/// What the root has found out about a sparse matrix of a database.
struct FoundMatrix {
  std::string path;
  SparsePlace place;
};

namespace {

using tool::ExitCode;
using tool::InputFile;
using tool::SourceFacts;
using tool::StoredMatrix;
using tool::ToolError;

/// Finds a sparse matrix in a database, which stays open; none for every other file.
std::optional<FoundMatrix> FindSparse(std::string const& name, ORXSimDatabase& database, SourceFacts& facts) {
  // What is no database may be a pipe, which can be opened but once.
  std::string const path = tool::PathOf(name);
  if (!tool::HoldsDatabase(path)) return {};
  InputFile const file(name);
  RefuseUnfinishedCommit(file.Path());
  tool::OpenToRead(database, file.Path());
  StoredMatrix const stored = tool::FindMatrix(database, file.Path(), file.MatrixName(), facts.name);
  if (!stored.IsSparse()) return {};
  facts.path = tool::FullName(file, stored);
  facts.labels = tool::RowLabels(stored);
  if (tool::AreCounted(facts.labels)) facts.labels.clear();
  return FoundMatrix{
      file.Path(),
      {stored.DrawerPath(), stored.rows, stored.columns, stored.kind == StoredMatrix::Kind::SparseSymmetric}};
}

/// The root's facts, but for the labels.
void Broadcast(SourceFacts& facts, Ranks const& ranks) {
  ranks.Broadcast(facts.name);
  ranks.Broadcast(facts.path);
  ranks.Broadcast(facts.rows);
  ranks.Broadcast(facts.columns);
  ranks.Broadcast(facts.entryCount);
  ranks.Broadcast(facts.isWhole);
  ranks.Broadcast(facts.symmetry);
}

void Broadcast(FoundMatrix& found, Ranks const& ranks) {
  ranks.Broadcast(found.path);
  ranks.Broadcast(found.place.drawer);
  ranks.Broadcast(found.place.rows);
  ranks.Broadcast(found.place.columns);
  ranks.Broadcast(found.place.isSymmetric);
}

void Send(void const* from, std::int64_t bytes, int rank, Ranks const& ranks) {
  MPI_Send(from, static_cast<int>(bytes), MPI_BYTE, rank, 0, ranks.Communicator());
}

void ReceiveFromRoot(void* to, std::int64_t bytes, Ranks const& ranks) {
  MPI_Recv(to, static_cast<int>(bytes), MPI_BYTE, 0, 0, ranks.Communicator(), MPI_STATUS_IGNORE);
}

constexpr std::int64_t pieceEntries = 1 << 19;

/// Entries `first` to `end` of the root's matrix go to a rank, in pieces.
void SendEntries(CompressedRowsView const& matrix, std::int64_t first, std::int64_t end, int rank,
                 Ranks const& ranks) {
  for (; first < end; first += pieceEntries) {
    std::int64_t const count = std::min(pieceEntries, end - first);
    Send(matrix.columnIndices + first, count * 4, rank, ranks);
    Send(matrix.values + first, count * 8, rank, ranks);
  }
}

void SendRows(CompressedRowsView const& matrix, int rank, Ranks const& ranks) {
  Range const rows = ranks.ShareOf(rank, matrix.rows);
  std::int32_t const* const pointers = matrix.rowPointers + rows.first;
  Send(pointers, (std::int64_t{rows.count} + 1) * 4, rank, ranks);
  SendEntries(matrix, pointers[0], pointers[rows.count], rank, ranks);
}

/// The pieces of a share whose row pointers are known.
void MakePieces(RowShare& share) {
  for (std::int64_t at = 0; at < share.Entries(); at += pieceEntries)
    share.pieces.emplace_back(std::min(pieceEntries, share.Entries() - at));
}

void CountFromZero(std::vector<std::int32_t>& pointers) {
  std::int32_t const first = pointers.front();
  for (std::int32_t& pointer : pointers)
    pointer -= first;
}

void ReceiveRows(RowShare& share, Ranks const& ranks) {
  ReceiveFromRoot(share.rowPointers.data(), std::ssize(share.rowPointers) * 4, ranks);
  CountFromZero(share.rowPointers);
  MakePieces(share);
  for (RowPiece& piece : share.pieces) {
    ReceiveFromRoot(piece.columns.Data(), piece.Entries() * 4, ranks);
    ReceiveFromRoot(piece.values.Data(), piece.Entries() * 8, ranks);
  }
}

void CopyRows(CompressedRowsView const& matrix, RowShare& share) {
  std::copy_n(matrix.rowPointers, share.rowPointers.size(), share.rowPointers.begin());
  MakePieces(share);
  std::int64_t at = 0;
  for (RowPiece& piece : share.pieces) {
    std::copy_n(matrix.columnIndices + at, piece.Entries(), piece.columns.Data());
    std::copy_n(matrix.values + at, piece.Entries(), piece.values.Data());
    at += piece.Entries();
  }
}

} // namespace

void RefuseUnfinishedCommit(std::string const& path) {
  char begin[8] = {};
  std::ifstream(path, std::ios::binary).read(begin, sizeof begin);
  if (std::string_view(begin, sizeof begin) != "orxapply") return;
  throw ToolError(
      ExitCode::UnusableInput,
      "'" + path +
          "' has a commit that was cut off, which many ranks cannot finish; expected a file that has "
          "been opened for writing since, by the program that writes it: that finishes the commit");
}

bool IsReadByAll(std::string const& file, Ranks const& ranks) {
  bool isSparse = false;
  ranks.OnRoot([&] {
    ORXSimDatabase database;
    SourceFacts facts;
    isSparse = FindSparse(file, database, facts).has_value();
  });
  ranks.Broadcast(isSparse);
  return isSparse;
}

RowShare ShareOut(ORXSrvSparseMatrix const& ofRoot, Ranks const& ranks) {
  RowShare share;
  share.rows = ofRoot.NumberOfRows();
  share.columns = ofRoot.NumberOfColumns();
  ranks.Broadcast(share.rows);
  ranks.Broadcast(share.columns);
  share.own = ranks.OwnShare(share.rows);
  ranks.OnEach([&] { share.rowPointers.resize(static_cast<std::size_t>(share.own.count) + 1); });
  if (!ranks.IsRoot()) {
    ReceiveRows(share, ranks);
    return share;
  }
  CompressedRowsView const matrix = ofRoot.View();
  for (int rank = 1; rank < ranks.Count(); ++rank)
    SendRows(matrix, rank, ranks);
  CopyRows(matrix, share);
  return share;
}

SourceOnRanks::SourceOnRanks(char const* letter, std::string const& file, Ranks const& ranks)
    : m_ranks(ranks) {
  m_facts.name = letter;
  std::optional<tool::Progress> progress;
  ORXSimDatabase database; // the root's: its lock keeps writers away while all ranks read
  FoundMatrix found;
  ranks.OnRoot([&] {
    if (std::optional<FoundMatrix> const sparse = FindSparse(file, database, m_facts)) {
      progress.emplace("reading " + m_facts.path);
      found = *sparse;
    } else {
      m_ofRoot.emplace(letter, file);
      m_facts = *m_ofRoot;
    }
  });
  Broadcast(found, ranks);
  if (!found.path.empty()) ReadFromDatabase(found);
  Broadcast(m_facts, ranks);
}

void SourceOnRanks::ReadFromDatabase(FoundMatrix const& found) {
  ParallelFile const file(found.path, m_ranks);
  m_rows = Split(ReadSparseDrawer(file, found.place, m_ranks), m_ranks);
  m_scan = Scan(*m_rows, m_ranks);
  m_facts.rows = found.place.rows;
  m_facts.columns = found.place.columns;
  m_facts.entryCount = m_scan.entries;
  m_facts.isWhole = true;
  m_facts.symmetry = MeasureSymmetry(*m_rows, m_scan, m_ranks);
  m_ranks.OnEach([&] { tool::RequireRowsAndColumns(m_facts); });
}

std::string SourceOnRanks::NoteText() const {
  if (IsReadByAll() || m_ranks.Count() == 1) return "";
  return tool::Note(
      m_facts.name +
      ": read by one rank, in whose memory it was meanwhile; a sparse matrix of a database is read "
      "by all");
}

void SourceOnRanks::RequireAsStated() const {
  m_ranks.OnEach([&] {
    if (m_ofRoot) return tool::RequireAsStated(*m_ofRoot);
    tool::RequireSquareAsStated(m_facts);
    if (m_facts.symmetry.form != tool::Symmetry::Form::BothTriangles && m_scan.firstBesideDiagonal)
      tool::RequireNotHalfAsStated(m_facts, *m_scan.firstBesideDiagonal);
  });
}

void SourceOnRanks::RequireFinite() const {
  m_ranks.OnEach([&] {
    if (m_scan.firstNotFinite) tool::RequireFinite(*m_scan.firstNotFinite, m_facts.FullName());
  });
}

Handle<Mat> SourceOnRanks::TakeSymmetric(int order) {
  if (!IsReadByAll()) {
    ORXSrvSparseMatrix whole(0, 0);
    m_ranks.OnRoot([&] {
      whole = tool::SymmetricFormOf(*m_ofRoot, order).GeneralForm();
      m_ofRoot.reset();
    });
    return MakeMatrix(Split(ShareOut(whole, m_ranks), m_ranks), m_ranks);
  }
  RequireFinite();
  m_ranks.OnEach(
      [&] { tool::RequireSymmetric(m_facts.rows, m_facts.columns, m_facts.symmetry, m_facts.FullName()); });
  SplitRows rows = std::exchange(*m_rows, {});
  return MakeMatrix(m_facts.symmetry.IsExact() ? std::move(rows) : Averaged(std::move(rows), m_ranks),
                    m_ranks);
}

Handle<Mat> SourceOnRanks::TakeSquare(int order) {
  if (m_facts.IsSymmetric()) return TakeSymmetric(order);
  if (!IsReadByAll()) {
    ORXSrvSparseMatrix whole(0, 0);
    m_ranks.OnRoot([&] {
      whole = tool::SquareMatrixOf(*m_ofRoot, order);
      m_ofRoot.reset();
    });
    return MakeMatrix(Split(ShareOut(whole, m_ranks), m_ranks), m_ranks);
  }
  RequireFinite();
  return MakeMatrix(std::exchange(*m_rows, {}), m_ranks);
}

} // namespace orx::mpi
