#include "sim/impl/store/TransactionalFile.h"

#include <algorithm>
#include <cerrno>

namespace store {

namespace {

constexpr std::uint64_t smallGrowth = 1 << 20; // growth below reserves ahead, to save calls
constexpr std::uint64_t lookAhead = 64 << 10;

std::uint64_t RoundUp(std::uint64_t offset) { return (offset + pageBytes - 1) / pageBytes * pageBytes; }

} // namespace

TransactionalFile::TransactionalFile(std::string const& path, PositionedFile::Mode mode, bool isScratch)
    : m_file(path, mode), m_isScratch(isScratch), m_isAllReserved(m_file.Size() == 0) {
  Recover();
  // The end of the committed state is not known yet: all of the file counts.
  m_committedEnd = m_reservedEnd = m_usedEnd = m_file.Size();
}

std::unique_ptr<TransactionalFile> TransactionalFile::Create(std::string const& path, bool isScratch,
                                                             bool replacesExisting) {
  auto const mode = replacesExisting ? PositionedFile::Mode::Replace : PositionedFile::Mode::Create;
  return std::unique_ptr<TransactionalFile>(new TransactionalFile(path, mode, isScratch));
}

std::unique_ptr<TransactionalFile> TransactionalFile::Open(std::string const& path, bool readOnly) {
  auto const mode = readOnly ? PositionedFile::Mode::Read : PositionedFile::Mode::Write;
  return std::unique_ptr<TransactionalFile>(new TransactionalFile(path, mode, false));
}

TransactionalFile::~TransactionalFile() {
  if (IsReadOnly() || m_isJournalPending || !m_hasCommitted) return;
  try {
    m_file.Resize(m_committedEnd);
  } catch (std::exception const&) {
    return; // unused bytes behind the end do no harm
  }
}

void TransactionalFile::Recover() {
  std::optional<Journal> const journal = Journal::ReadFrom(m_file);
  if (!journal) return;
  m_sequence = journal->sequence;
  if (IsReadOnly()) {
    for (std::size_t k = 0; k < journal->pages.size(); ++k)
      m_overlay.Write(journal->pages[k] * pageBytes, journal->Image(k), pageBytes);
    return;
  }
  journal->Apply(m_file);
  m_file.Sync();
  m_file.Resize(journal->endOfAllocation);
}

void TransactionalFile::ReadMetadata(std::uint64_t offset, void* to, std::size_t bytes) const {
  m_file.ReadZeroFilled(offset, to, bytes);
  m_overlay.Cover(offset, to, bytes);
}

void TransactionalFile::WriteMetadata(std::uint64_t offset, void const* from, std::size_t bytes) {
  if (!m_isDiscarded) m_overlay.Write(offset, from, bytes);
}

void TransactionalFile::ReadValues(std::uint64_t offset, void* to, std::size_t bytes) const {
  m_file.ReadZeroFilled(offset, to, bytes);
}

void TransactionalFile::WriteValues(std::uint64_t offset, void const* from, std::size_t bytes) {
  if (m_isDiscarded) return;
  m_areValuesDirty = true;
  m_file.WriteAt(offset, from, bytes);
}

void TransactionalFile::ValuesChanged() {
  m_areValuesDirty = true;
  if (m_isAllReserved) return;
  // Copying tools turn runs of zeros into holes.
  m_file.Reserve(0, m_file.Size());
  m_isAllReserved = true;
}

void TransactionalFile::SetEndOfAllocation(std::uint64_t end) {
  bool const isFirst = m_end == 0;
  if (!IsReadOnly() && !m_isDiscarded && !isFirst && end > m_reservedEnd) {
    std::uint64_t const ahead = end - m_reservedEnd < smallGrowth ? lookAhead : 0;
    try {
      m_file.Reserve(m_reservedEnd, end + ahead);
      m_reservedEnd = end + ahead;
    } catch (FileError const&) {
      if (ahead == 0) throw;
      m_file.Reserve(m_reservedEnd, end);
      m_reservedEnd = end;
    }
  }
  m_end = end;
  m_usedEnd = std::max(m_usedEnd, end);
}

void TransactionalFile::ReserveGrowth(std::uint64_t bytes) {
  std::uint64_t const end = m_end + bytes;
  if (end <= m_reservedEnd) return;
  m_file.Reserve(m_reservedEnd, end);
  m_reservedEnd = end;
}

std::uint64_t TransactionalFile::EndOfFile() const noexcept { return std::max(m_file.Size(), m_end); }

void TransactionalFile::Free(std::uint64_t offset, std::uint64_t bytes) noexcept {
  if (offset + bytes == m_end && offset >= m_committedEnd) m_end = offset;
}

void TransactionalFile::Sync() {
  if (m_isScratch) return;
  try {
    m_file.Sync();
  } catch (FileError const&) {
    m_isDead =
        true; // the system may have dropped what it could not write: a second flush would succeed falsely
    throw;
  }
}

void TransactionalFile::Commit() {
  if (m_isDead || m_isJournalPending)
    throw FileError("committing", m_file.Path(), EIO, "a flush failed before; the file must be opened again");
  if (m_isScratch) return;
  // Values first: a journal that survives must not tell of values that did not.
  if (m_areValuesDirty) Sync();
  m_areValuesDirty = false;
  if (m_overlay.IsEmpty()) return;
  Journal journal = Journal::Of(m_overlay, m_file);
  journal.endOfAllocation = m_end;
  journal.sequence = m_sequence + 1;
  WriteJournal(journal);
  Apply(journal);
  FinishCommit();
}

void TransactionalFile::WriteJournal(Journal const& journal) {
  std::uint64_t const top =
      std::max({m_end, m_committedEnd, (journal.pages.back() + 1) * std::uint64_t{pageBytes}});
  std::uint64_t const position = RoundUp(top);
  try {
    m_file.Reserve(m_committedEnd, position + journal.Size()); // applying must not meet a full disk
    journal.WriteTo(m_file, position);
    Sync();
  } catch (FileError const&) {
    try {
      m_file.Resize(top);
    } catch (FileError const&) {
      m_isDead = true; // a whole journal may stand in the file
    }
    m_reservedEnd = std::min(m_reservedEnd, top);
    throw;
  }
  m_isJournalPending = true;
}

void TransactionalFile::Apply(Journal const& journal) {
  journal.Apply(m_file);
  Sync();
  m_file.Resize(journal.endOfAllocation);
  m_isJournalPending = false;
}

void TransactionalFile::FinishCommit() {
  m_overlay.Clear();
  ++m_sequence;
  m_committedEnd = m_reservedEnd = m_end;
  bool const isFirst = !m_hasCommitted;
  m_hasCommitted = true;
  if (isFirst && !m_isScratch) m_file.SyncFolder();
}

void TransactionalFile::CommitForClose() {
  if (!m_isScratch) {
    Commit();
    return;
  }
  if (m_overlay.IsEmpty()) return;
  Journal const journal = Journal::Of(m_overlay, m_file);
  m_file.Reserve(m_committedEnd, std::max(m_end, (journal.pages.back() + 1) * std::uint64_t{pageBytes}));
  journal.Apply(m_file);
  m_file.Resize(m_end);
  FinishCommit();
}

} // namespace store
