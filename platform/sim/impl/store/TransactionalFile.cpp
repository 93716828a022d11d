#include "sim/impl/store/TransactionalFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace orx::store {

namespace {

using Access = FileError::Access;
using Page = PageOverlay::Page;

constexpr std::uint64_t pageBytes = PageOverlay::pageBytes;
constexpr std::uint64_t signatureBytes = 8;

/// In place of the signature while pages go to their places.
constexpr std::array<char, signatureBytes> applyingMark = {'o', 'r', 'x', 'a', 'p', 'p', 'l', 'y'};

/// HDF5 grows the file by a few kB at a time; one reservation for many of them is cheaper. Large growth is
/// what it is.
constexpr std::uint64_t largeGrowth = std::uint64_t{1} << 20;
constexpr std::uint64_t lookAhead = std::uint64_t{64} << 10;

/// File offsets are signed 64-bit numbers.
constexpr std::uint64_t largestEnd = std::uint64_t{1} << 62;

std::uint64_t RoundUpToPage(std::uint64_t value) { return (value + pageBytes - 1) / pageBytes * pageBytes; }

/// Puts images, given from the last page to the first, in their places. Neighbours go with one call; the
/// first page comes last, its signature after everything else.
class PageApplier {
public:
  explicit PageApplier(PositionedFile& file) : m_file(file), m_run(mostInRun * pageBytes) {
    m_file.WriteAt(0, applyingMark.data(), applyingMark.size());
  }

  void Put(std::uint64_t number, std::byte const* image) {
    if (m_pages == mostInRun || (m_pages > 0 && number + 1 != m_first)) Flush();
    ++m_pages;
    m_first = number;
    std::memcpy(Start(), image, pageBytes);
  }
  void Finish() {
    Flush();
    m_file.WriteAt(0, m_signature.data(), m_signature.size());
  }

private:
  static constexpr std::size_t mostInRun = 256;

  /// The run is filled from its end.
  std::byte* Start() { return m_run.data() + (mostInRun - m_pages) * pageBytes; }
  void Flush() {
    if (m_pages == 0) return;
    std::size_t const skipped = m_first == 0 ? signatureBytes : 0;
    if (skipped > 0) std::memcpy(m_signature.data(), Start(), skipped);
    m_file.WriteAt(m_first * pageBytes + skipped, Start() + skipped, m_pages * pageBytes - skipped);
    m_pages = 0;
  }

  PositionedFile& m_file;
  std::vector<std::byte> m_run;
  std::uint64_t m_first = 0; ///< page number of the run's front
  std::size_t m_pages = 0;   ///< in the run
  std::array<std::byte, signatureBytes> m_signature{};
};

} // namespace

// Opening and closing

TransactionalFile::TransactionalFile(std::string const& path, PositionedFile::Mode mode, bool isScratch)
    : m_file(path, mode), m_isScratch(isScratch),
      m_isNameDurable(mode == PositionedFile::Mode::Read || mode == PositionedFile::Mode::Write) {}

std::unique_ptr<TransactionalFile> TransactionalFile::Create(std::string const& path, bool isScratch,
                                                             bool replacesExisting) {
  auto const mode = replacesExisting ? PositionedFile::Mode::Replace : PositionedFile::Mode::Create;
  return std::unique_ptr<TransactionalFile>(new TransactionalFile(path, mode, isScratch));
}

std::unique_ptr<TransactionalFile> TransactionalFile::Open(std::string const& path, bool readOnly) {
  auto const mode = readOnly ? PositionedFile::Mode::Read : PositionedFile::Mode::Write;
  std::unique_ptr<TransactionalFile> file(new TransactionalFile(path, mode, false));
  // Where the last committed state ends only HDF5 knows; until it commits, all of the file counts.
  file->m_committedEnd = file->m_usedEnd = file->m_file.Size();
  file->Recover();
  return file;
}

TransactionalFile::~TransactionalFile() { DropUncommitted(); }

void TransactionalFile::Recover() {
  std::optional<Journal::Found> const journal = Journal::Find(m_file);
  bool const isWhole = journal && journal->state == Journal::State::Whole;
  std::array<char, signatureBytes> start{};
  m_file.ReadZeroFilled(0, start.data(), start.size());
  if (start == applyingMark && !isWhole)
    throw FileError(Access::Read, "opening", m_file.Path(), EUCLEAN,
                    "a commit was interrupted, and the journal that would finish it is damaged");
  if (!journal) return;
  std::uint64_t const end = isWhole ? journal->trailer.end : journal->trailer.position;
  if (isWhole && IsReadOnly()) LoadJournal(journal->trailer);
  if (isWhole && !IsReadOnly()) ApplyJournal(journal->trailer);
  if (!IsReadOnly()) m_file.Resize(end);
  m_committedEnd = m_usedEnd = end;
  m_counts.replays += isWhole ? 1 : 0;
}

void TransactionalFile::LoadJournal(Journal::Trailer const& trailer) {
  Journal::ForEachPageFromLast(m_file, trailer, [this](std::uint64_t number, std::byte const* image) {
    m_overlay.Write(number * pageBytes, image, pageBytes);
  });
}

void TransactionalFile::ApplyJournal(Journal::Trailer const& trailer) {
  PageApplier applier(m_file);
  Journal::ForEachPageFromLast(
      m_file, trailer, [&](std::uint64_t number, std::byte const* image) { applier.Put(number, image); });
  applier.Finish();
  m_file.Sync();
}

/// What lies behind the committed end was never committed. Not when a journal waits there.
void TransactionalFile::DropUncommitted() noexcept {
  if (IsReadOnly()) return;
  m_overlay.Clear();
  if (m_isJournalPending) return;
  try {
    if (m_file.Size() > m_committedEnd) m_file.Resize(m_committedEnd);
    m_usedEnd = m_committedEnd;
  } catch (FileError const& error) {
    // Only space is lost, until the next commit.
    KeepFailure(error);
  }
}

void TransactionalFile::Attach() noexcept {
  m_isAttached = true;
  m_end = 0;
  m_isDiscarding = false;
}

void TransactionalFile::Detach() noexcept {
  m_isAttached = false;
  DropUncommitted();
  m_end = 0;
}

// Transactions

/// Raises when only the next opening can tell what the file holds.
void TransactionalFile::RequireUsable(char const* operation) const {
  if (m_isSyncBroken)
    throw FileError(Access::Write, operation, m_file.Path(), EIO,
                    "the system could not write to the disk before; close the file and open it again");
  if (m_isJournalPending)
    throw FileError(Access::Write, operation, m_file.Path(), EIO,
                    "a commit is not finished; close the file and open it again");
}

void TransactionalFile::Sync() {
  if (m_isScratch) return;
  m_isSyncBroken = true; // a failed sync cannot be repeated: the system has dropped what it could not write
  m_file.Sync();
  m_isSyncBroken = false;
}

void TransactionalFile::Commit() {
  if (IsReadOnly() || m_isDiscarding)
    throw FileError(Access::Write, "committing", m_file.Path(), EROFS,
                    IsReadOnly() ? "it was opened for reading" : "the transaction was discarded");
  RequireUsable("committing");
  if (m_isScratch) return;
  if (!m_isNameDurable) m_file.SyncFolder();
  m_isNameDurable = true;
  SyncValues();
  if (!m_overlay.IsEmpty()) {
    HoldSignature();
    std::vector<Page const*> const pages = m_overlay.CompleteImages(m_file);
    WriteJournal(pages);
    m_isJournalPending = true;
    ApplyPages(pages);
    Sync();
    CutToEnd();
    m_isJournalPending = false;
    m_overlay.Clear();
  }
  ++m_counts.commits;
}

void TransactionalFile::CommitForClose() {
  if (!m_isScratch) return Commit();
  RequireUsable("writing");
  if (m_overlay.IsEmpty()) return;
  HoldSignature();
  ApplyPages(m_overlay.CompleteImages(m_file));
  CutToEnd();
  m_overlay.Clear();
}

/// Before the journal: one that survives a power cut must not tell of values that did not.
void TransactionalFile::SyncValues() {
  if (!m_hasNewValues) return;
  Sync();
  m_hasNewValues = false;
}

/// Page 0 is part of every commit, because its signature is wiped meanwhile; what HDF5 reads after a failure
/// must still have it.
void TransactionalFile::HoldSignature() {
  std::array<std::byte, signatureBytes> signature{};
  ReadStructure(0, signature.data(), signature.size());
  m_overlay.Write(0, signature.data(), signature.size());
}

void TransactionalFile::WriteJournal(Pages pages) {
  std::uint64_t const lastPageEnd = (pages.back()->number + 1) * pageBytes;
  std::uint64_t const position = RoundUpToPage(std::max({m_end, m_committedEnd, lastPageEnd}));
  std::uint64_t const bytes = Journal::BytesFor(pages.size());
  try {
    // All inside of the file has space; with the rest, applying the pages cannot meet a full disk.
    m_file.Reserve(m_file.Size(), position + bytes);
    if (m_file.Size() > position + bytes) m_file.Resize(position + bytes);
    Journal::Write(m_file, position, pages, m_end, ++m_sequence);
    Sync();
  } catch (FileError const&) {
    m_usedEnd = std::max(m_usedEnd, m_file.Size());
    try {
      if (m_file.Size() > position) m_file.Resize(position);
    } catch (FileError const& error) {
      // What is there is torn, and dropped by the next opening; or, after a failed sync, it may be whole and
      // is then finished.
      KeepFailure(error);
    }
    throw;
  }
  m_counts.journalBytes += bytes;
  m_counts.pages += pages.size();
}

void TransactionalFile::ApplyPages(Pages pages) {
  PageApplier applier(m_file);
  for (std::size_t k = pages.size(); k-- > 0;)
    applier.Put(pages[k]->number, pages[k]->bytes.data());
  applier.Finish();
}

/// Ends the file where HDF5 ends it, which cuts a journal off.
void TransactionalFile::CutToEnd() {
  m_file.Resize(m_end);
  m_committedEnd = m_usedEnd = m_end;
}

// Space

void TransactionalFile::ReserveGrowth(std::uint64_t bytes) {
  if (IsReadOnly() || m_isDiscarding) return;
  RequireUsable("reserving space in");
  if (bytes > largestEnd - m_end)
    throw FileError(Access::Write, "reserving space in", m_file.Path(), EFBIG, FileRange{m_end, bytes});
  m_file.Reserve(m_file.Size(), m_end + bytes);
}

void TransactionalFile::SetEndOfAllocation(std::uint64_t end) {
  if (!IsReadOnly() && end < m_end) m_overlay.Release(end, m_end - end);
  if (!IsReadOnly() && !m_isDiscarding && end > m_end) {
    RequireUsable("reserving space in"); // a waiting journal lies behind the end
    if (end > m_file.Size()) ReserveUpTo(end);
  }
  m_end = end;
  m_usedEnd = std::max(m_usedEnd, end);
}

void TransactionalFile::SetEndOfStructure(std::uint64_t end) {
  try {
    SetEndOfAllocation(end);
  } catch (FileError const&) {
    m_end = end; // the file may now end before; WriteJournal reserves what is missing
    m_usedEnd = std::max(m_usedEnd, end);
  }
}

void TransactionalFile::ReserveUpTo(std::uint64_t end) {
  std::uint64_t const size = m_file.Size();
  bool const isSmall = end - size < largeGrowth;
  try {
    m_file.Reserve(size, isSmall ? end + lookAhead : end);
  } catch (FileError const&) {
    if (!isSmall) throw;
    m_file.Reserve(size, end);
  }
}

void TransactionalFile::Free(std::uint64_t offset, std::uint64_t bytes) {
  // Space of the committed state must keep its bytes until the next commit no longer needs them.
  if (offset + bytes == m_end && offset >= m_committedEnd) SetEndOfAllocation(offset);
}

std::uint64_t TransactionalFile::EndOfFile() const noexcept {
  // A reader does not see a waiting journal.
  return std::max(m_end, IsReadOnly() ? m_committedEnd : m_file.Size());
}

// Bytes

void TransactionalFile::ReadStructure(std::uint64_t offset, void* to, std::size_t bytes) const {
  m_file.ReadZeroFilled(offset, to, bytes);
  m_overlay.LayOver(offset, to, bytes);
}

void TransactionalFile::WriteStructure(std::uint64_t offset, void const* from, std::size_t bytes) {
  m_overlay.Write(offset, from, bytes);
}

void TransactionalFile::ReadValues(std::uint64_t offset, void* to, std::size_t bytes) const {
  m_file.ReadZeroFilled(offset, to, bytes);
}

void TransactionalFile::WriteValues(std::uint64_t offset, void const* from, std::size_t bytes) {
  if (m_isDiscarding) return;
  RequireUsable("writing");
  m_hasNewValues = true;
  m_overlay.Release(offset, bytes);
  m_file.WriteAt(offset, from, bytes);
}

} // namespace orx::store
