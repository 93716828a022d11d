#include "file/TransactionalFile.h"

#include "file/ScratchFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace orx::file {

namespace {

using Access = FileError::Access;
using Page = PageOverlay::Page;

constexpr std::uint64_t pageBytes = PageOverlay::pageBytes;
constexpr std::uint64_t signatureBytes = 8;

/// The mark over the signature while a journal is due.
constexpr std::array<char, signatureBytes> applyingMark = {'o', 'r', 'x', 'a', 'p', 'p', 'l', 'y'};

/// HDF5 often grows the file by a few kB. After a small growth `lookAhead` more bytes are reserved, because
/// one reservation for many of them is cheaper. A growth from `largeGrowth` on is reserved exactly.
constexpr std::uint64_t largeGrowth = std::uint64_t{1} << 20;
constexpr std::uint64_t lookAhead = std::uint64_t{64} << 10;

/// File offsets are signed 64-bit numbers.
constexpr std::uint64_t largestEnd = std::uint64_t{1} << 62;

std::uint64_t RoundUpToPage(std::uint64_t value) { return (value + pageBytes - 1) / pageBytes * pageBytes; }

/// Writes page images, which come from the last page to the first, to their file offsets, and at the end the
/// signature, which lets other programs read the file. Consecutive pages are written by one call.
class PageApplier {
public:
  PageApplier(PositionedFile& file, bool isDurable)
      : m_file(file), m_isDurable(isDurable), m_run(mostInRun * pageBytes) {}

  void AddPage(std::uint64_t number, std::byte const* image) {
    if (m_pages == mostInRun || (m_pages > 0 && number + 1 != m_first)) Flush();
    ++m_pages;
    m_first = number;
    std::memcpy(Start(), image, pageBytes);
  }
  void Finish() {
    Flush();
    Sync();
    m_file.WriteAt(0, m_signature.data(), m_signature.size());
    Sync();
  }

private:
  static constexpr std::size_t mostInRun = 256;

  /// First byte of the run, which fills its memory from the end.
  std::byte* Start() { return m_run.data() + (mostInRun - m_pages) * pageBytes; }
  void Sync() {
    if (m_isDurable) m_file.Sync();
  }
  void Flush() {
    if (m_pages == 0) return;
    std::size_t const skipped = m_first == 0 ? signatureBytes : 0;
    if (skipped > 0) std::memcpy(m_signature.data(), Start(), skipped);
    m_file.WriteAt(m_first * pageBytes + skipped, Start() + skipped, m_pages * pageBytes - skipped);
    m_pages = 0;
  }

  PositionedFile& m_file;
  bool m_isDurable;
  std::vector<std::byte> m_run;
  std::uint64_t m_first = 0; ///< number of the run's first page
  std::size_t m_pages = 0;   ///< number of pages in the run
  std::array<std::byte, signatureBytes> m_signature{};
};

void ApplyJournal(PositionedFile& file, Journal::Trailer const& trailer) {
  PageApplier applier(file, true);
  Journal::ForEachPageFromLast(
      file, trailer, [&](std::uint64_t number, std::byte const* image) { applier.AddPage(number, image); });
  applier.Finish();
}

} // namespace

// Opening and closing

TransactionalFile::TransactionalFile(std::string const& path, PositionedFile::Mode mode, bool isScratch)
    : m_file(path, mode), m_isScratch(isScratch) {}

std::unique_ptr<TransactionalFile> TransactionalFile::Create(std::string const& path, bool isScratch,
                                                             bool replacesExisting) {
  if (isScratch) MakeWayForScratch(path, replacesExisting);
  using Mode = PositionedFile::Mode;
  Mode const mode = isScratch ? Mode::Scratch : replacesExisting ? Mode::Replace : Mode::Create;
  return std::unique_ptr<TransactionalFile>(new TransactionalFile(path, mode, isScratch));
}

std::unique_ptr<TransactionalFile> TransactionalFile::Open(std::string const& path, bool readOnly) {
  auto const mode = readOnly ? PositionedFile::Mode::Read : PositionedFile::Mode::Write;
  std::unique_ptr<TransactionalFile> file(new TransactionalFile(path, mode, false));
  // Only HDF5 knows where the committed state ends; until the first commit it is taken to be the whole file.
  file->m_committedEnd = file->m_usedEnd = file->m_file.Size();
  file->RecoverCommit();
  return file;
}

TransactionalFile::~TransactionalFile() { DropUncommitted(); }

void TransactionalFile::RecoverCommit() {
  std::array<char, signatureBytes> start{};
  m_file.ReadZeroFilled(0, start.data(), start.size());
  if (start != applyingMark) return;
  m_dueJournal = Journal::Find(m_file);
  if (!m_dueJournal)
    throw FileError(Access::Read, "opening", m_file.Path(), EUCLEAN,
                    "a commit was interrupted, and the journal that would finish it is damaged");
  ++m_counts.replays;
  if (!IsReadOnly()) return FinishCommit();
  LoadJournal(*m_dueJournal);
  m_committedEnd = m_dueJournal->end;
  m_dueJournal.reset();
}

void TransactionalFile::LoadJournal(Journal::Trailer const& trailer) {
  Journal::ForEachPageFromLast(m_file, trailer, [this](std::uint64_t number, std::byte const* image) {
    m_overlay.Write(number * pageBytes, image, pageBytes);
  });
}

/// Drops the held metadata, and cuts off the bytes behind the committed end, which were never committed.
/// Leaves them where they are the journal of a commit that cannot be finished now.
void TransactionalFile::DropUncommitted() noexcept {
  if (IsReadOnly() || !m_file.IsOwner()) return;
  m_overlay.Clear();
  if (!TryToFinishCommit()) return;
  m_usedEnd = m_committedEnd;
  if (m_file.Size() > m_committedEnd) CutTo(m_committedEnd);
}

void TransactionalFile::Attach() noexcept {
  m_isAttached = true;
  m_end = 0;
}

void TransactionalFile::Detach() noexcept {
  m_isAttached = false;
  DropUncommitted();
  m_end = 0;
}

// Transactions

/// Raises FileError unless the state allows writing. Finishes a commit that is due.
void TransactionalFile::RequireUsable(char const* operation) {
  m_file.RequireOwner(operation);
  switch (m_state) {
  case State::Open:
    return;
  case State::Due:
    return FinishCommit();
  case State::Broken:
    throw FileError(Access::Write, operation, m_file.Path(), EIO,
                    "an earlier failure has left it in an unknown state; close it and open it again");
  case State::Discarding:
    throw FileError(Access::Write, operation, m_file.Path(), EROFS, "the transaction was discarded");
  }
}

void TransactionalFile::Sync() {
  if (m_isScratch) return;
  m_state =
      State::Broken; // a failed sync cannot be repeated: the system drops the bytes that it could not write
  m_file.Sync();
  m_state = State::Open;
  m_hasNewRawData = false;
}

void TransactionalFile::Commit() {
  if (IsReadOnly())
    throw FileError(Access::Write, "committing", m_file.Path(), EROFS, "it was opened for reading");
  RequireUsable("committing");
  if (m_isScratch) return;
  m_file.RequireIntact("committing");
  if (!m_file.IsPublished()) {
    CommitFirst();
  } else if (!m_overlay.IsEmpty()) {
    CommitPages();
  } else if (m_hasNewRawData) {
    Sync();
  }
  ++m_counts.commits;
}

/// Needs no journal, because a file that was never committed does not have its name yet.
void TransactionalFile::CommitFirst() {
  if (!m_overlay.IsEmpty()) {
    std::vector<Page const*> const pages = m_overlay.CompleteImages(m_file);
    m_file.Reserve(m_file.Size(), std::max(m_end, (pages.back()->number + 1) * pageBytes));
    m_state = State::Broken; // raw data is lost when a sync fails
    ApplyPages(pages);
    m_state = State::Open;
    m_overlay.Clear();
  }
  CutTo(m_end);
  m_file.Publish();
}

void TransactionalFile::CommitPages() {
  HoldSignature();
  std::vector<Page const*> const pages = m_overlay.CompleteImages(m_file);
  PageApplier applier(m_file, true); // allocates its memory now, while the commit can still fail
  Journal::Trailer const journal = WriteJournal(pages);
  MarkDue();
  m_dueJournal = journal;
  m_state = State::Due;
  try {
    for (std::size_t k = pages.size(); k-- > 0;)
      applier.AddPage(pages[k]->number, pages[k]->bytes.data());
    applier.Finish();
    EndDueCommit(m_end);
  } catch (...) {
    // It is unknown which pages were written, so all of them are written once more.
    if (!TryToFinishCommit()) return;
  }
  m_overlay.Clear();
}

void TransactionalFile::CommitForClose() {
  if (!m_isScratch) return Commit();
  RequireUsable("writing to");
  if (m_overlay.IsEmpty()) return;
  HoldSignature();
  ApplyPages(m_overlay.CompleteImages(m_file));
  m_file.Resize(m_end);
  m_committedEnd = m_usedEnd = m_end;
  m_overlay.Clear();
}

/// Makes page 0 a part of the commit. The mark overwrites the signature in the file, but HDF5 must still read
/// the signature after a failure.
void TransactionalFile::HoldSignature() {
  std::array<std::byte, signatureBytes> signature{};
  ReadMetadata(0, signature.data(), signature.size());
  m_overlay.Write(0, signature.data(), signature.size());
}

/// Writes the journal of a commit. The journal and the raw data are durable when this returns; the journal is
/// not due yet.
Journal::Trailer TransactionalFile::WriteJournal(Pages pages) {
  std::uint64_t const lastPageEnd = (pages.back()->number + 1) * pageBytes;
  std::uint64_t const position = RoundUpToPage(std::max({m_end, m_committedEnd, lastPageEnd}));
  std::uint64_t const bytes = Journal::BytesFor(pages.size());
  try {
    // The bytes inside the file have their space. With the space up to the journal's end reserved, too,
    // applying the pages cannot meet a full disk.
    m_file.Reserve(m_file.Size(), position + bytes);
    if (m_file.Size() > position + bytes) m_file.Resize(position + bytes);
    Journal::Trailer const journal = Journal::Write(m_file, position, pages, m_end, ++m_sequence);
    Sync();
    return journal;
  } catch (...) {
    DropJournal(position);
    throw;
  }
}

/// Cuts off a journal that will not become due. When that fails, the bytes stay; they have no meaning.
void TransactionalFile::DropJournal(std::uint64_t position) noexcept {
  m_usedEnd = std::max(m_usedEnd, m_file.Size());
  try {
    if (m_file.Size() > position) m_file.Resize(position);
  } catch (...) {
    return;
  }
}

/// Writes and syncs the mark. The commit has happened when this returns, and has not when this raises.
void TransactionalFile::MarkDue() {
  try {
    m_file.WriteAt(0, applyingMark.data(), applyingMark.size());
    Sync();
  } catch (...) {
    RestoreSignature();
    throw;
  }
}

/// Writes the signature over a mark whose writing or syncing has failed. The mark may be on the disk
/// nevertheless. The journal therefore stays: a power cut before the signature is on the disk leaves the new
/// state.
void TransactionalFile::RestoreSignature() {
  std::array<std::byte, signatureBytes> signature{};
  m_overlay.CopyHeldBytes(0, signature.data(), signature.size());
  m_committedEnd = std::max(m_committedEnd, m_file.Size());
  m_usedEnd = std::max(m_usedEnd, m_file.Size());
  try {
    m_file.WriteAt(0, signature.data(), signature.size());
  } catch (...) {
    m_state = State::Broken;
    throw FileError(Access::Write, "committing", m_file.Path(), EIO,
                    "the disk fails; only the next opening can tell whether it has the commit");
  }
}

void TransactionalFile::ApplyPages(Pages pages) {
  PageApplier applier(m_file, !m_isScratch);
  for (std::size_t k = pages.size(); k-- > 0;)
    applier.AddPage(pages[k]->number, pages[k]->bytes.data());
  applier.Finish();
}

/// Writes the pages of the commit that is due from its journal to their file offsets.
void TransactionalFile::FinishCommit() {
  ApplyJournal(m_file, *m_dueJournal);
  EndDueCommit(m_dueJournal->end);
}

/// Notes that all pages of the commit that was due are written; its state ends at `end`.
void TransactionalFile::EndDueCommit(std::uint64_t end) noexcept {
  m_dueJournal.reset();
  if (m_state == State::Due) m_state = State::Open;
  CutTo(end);
}

/// True when no commit is due any more.
bool TransactionalFile::TryToFinishCommit() noexcept {
  try {
    if (m_dueJournal) FinishCommit();
    return true;
  } catch (...) {
    return false;
  }
}

/// Ends the file where the committed state ends. When that fails, space is wasted until the next commit.
void TransactionalFile::CutTo(std::uint64_t end) noexcept {
  m_committedEnd = end;
  m_usedEnd = end;
  try {
    m_file.Resize(end);
  } catch (...) {
    m_usedEnd = std::max(end, m_file.Size());
  }
}

void TransactionalFile::CopyTo(std::string const& path, bool replacesExisting) {
  if (!IsReadOnly()) RequireUsable("copying");
  PositionedFile copy(path, replacesExisting ? PositionedFile::Mode::Replace : PositionedFile::Mode::Create);
  constexpr std::uint64_t atOnce = std::uint64_t{1} << 20;
  std::vector<std::byte> bytes(std::min(atOnce, m_committedEnd));
  for (std::uint64_t at = 0; at < m_committedEnd; at += bytes.size()) {
    std::size_t const here = std::min<std::uint64_t>(bytes.size(), m_committedEnd - at);
    m_file.ReadZeroFilled(at, bytes.data(), here);
    // The overlay of a reader has the pages of a journal that is due.
    if (IsReadOnly()) m_overlay.CopyHeldBytes(at, bytes.data(), here);
    copy.WriteAt(at, bytes.data(), here);
  }
  copy.Sync();
  copy.Publish();
}

// Space

void TransactionalFile::ReserveGrowth(std::uint64_t bytes) {
  if (IsReadOnly() || IsDiscarding()) return;
  RequireUsable("reserving space in");
  if (bytes > largestEnd - m_end)
    throw FileError(Access::Write, "reserving space in", m_file.Path(), EFBIG, FileRange{m_end, bytes});
  m_file.Reserve(m_file.Size(), m_end + bytes);
}

void TransactionalFile::SetEndOfAllocation(std::uint64_t end) {
  if (!IsReadOnly() && end < m_end) m_overlay.ReleaseBytes(end, m_end - end);
  if (!IsReadOnly() && !IsDiscarding() && m_file.IsOwner() && end > m_end) {
    RequireUsable("reserving space in"); // the journal of a due commit lies behind the end
    if (end > m_file.Size()) ReserveUpTo(end);
  }
  m_end = end;
  m_usedEnd = std::max(m_usedEnd, end);
}

void TransactionalFile::SetEndOfMetadata(std::uint64_t end) {
  try {
    SetEndOfAllocation(end);
  } catch (...) {
    m_end = end; // the file may end before; WriteJournal reserves the missing space
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
  // The committed state must keep its bytes until a next commit has replaced it.
  if (offset + bytes == m_end && offset >= m_committedEnd) SetEndOfAllocation(offset);
}

std::uint64_t TransactionalFile::EndOfFile() const noexcept {
  // A reader must not see the journal behind the committed end.
  return std::max(m_end, IsReadOnly() ? m_committedEnd : m_file.Size());
}

// Bytes

void TransactionalFile::ReadMetadata(std::uint64_t offset, void* to, std::size_t bytes) const {
  m_file.ReadZeroFilled(offset, to, bytes);
  m_overlay.CopyHeldBytes(offset, to, bytes);
}

void TransactionalFile::WriteMetadata(std::uint64_t offset, void const* from, std::size_t bytes) {
  m_overlay.Write(offset, from, bytes);
}

FileRange TransactionalFile::FindRawData(std::function<void()> const& read) {
  FileRange range{};
  m_requested = &range;
  try {
    read();
  } catch (...) {
    m_requested = nullptr;
    throw;
  }
  m_requested = nullptr;
  return range;
}

void TransactionalFile::ReadRawData(std::uint64_t offset, void* to, std::size_t bytes) const {
  if (m_requested != nullptr) {
    *m_requested = {offset, bytes};
    return;
  }
  m_file.ReadZeroFilled(offset, to, bytes);
}

void TransactionalFile::WriteRawData(std::uint64_t offset, void const* from, std::size_t bytes) {
  // HDF5 also writes when a forked process exits, which must not change the file.
  if (IsDiscarding() || !m_file.IsOwner()) return;
  WillWriteRawData();
  m_overlay.ReleaseBytes(offset, bytes);
  m_file.WriteAt(offset, from, bytes);
}

} // namespace orx::file
