#pragma once

#include "sim/impl/store/Journal.h"
#include "sim/impl/store/PageOverlay.h"
#include "sim/impl/store/PositionedFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace store {

/// A file whose metadata changes only by commits, each of which happens wholly or not at all, also when the
/// process is killed or the power fails in the middle of it. Between commits metadata that is written stays
/// in memory. Values (raw data) go to the file at once and in place.
///
///     Commit   flushes the values, writes a journal behind the end of the file, flushes, applies the
///     journal,
///              flushes, cuts it off
///     opening  a file that ends in a whole journal finishes that commit, or sees it as finished when
///              read-only; one that was not written to its end never happened
///
/// A scratch file has no journal and flushes nothing; its metadata is written by CommitForClose.
/// Errors are FileError.
class TransactionalFile {
public:
  static std::unique_ptr<TransactionalFile> Create(std::string const& path, bool isScratch,
                                                   bool replacesExisting);
  static std::unique_ptr<TransactionalFile> Open(std::string const& path, bool readOnly);

  TransactionalFile(TransactionalFile const&) = delete;
  TransactionalFile& operator=(TransactionalFile const&) = delete;
  /// Closes without a commit; space that was never committed is cut off.
  ~TransactionalFile();

  PositionedFile& File() noexcept { return m_file; }
  bool IsReadOnly() const noexcept { return m_file.IsReadOnly(); }

  // Bytes, for the driver

  void ReadMetadata(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteMetadata(std::uint64_t offset, void const* from, std::size_t bytes);
  void ReadValues(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteValues(std::uint64_t offset, void const* from, std::size_t bytes);
  /// Values are about to be written through File(). Reserves what a copied file may have lost.
  void ValuesChanged();

  // Space

  /// The end of what HDF5 has given out.
  std::uint64_t EndOfAllocation() const noexcept { return m_end; }
  /// Moves it; growth reserves space first.
  void SetEndOfAllocation(std::uint64_t end);
  std::uint64_t EndOfFile() const noexcept;
  /// Space that HDF5 no longer wants: taken back when it is the last and was never committed.
  void Free(std::uint64_t offset, std::uint64_t bytes) noexcept;
  /// Makes sure that so many bytes can be given out without meeting a full disk.
  void ReserveGrowth(std::uint64_t bytes);
  /// From here on the file has held nothing since it was opened: what is given out there reads as zeros.
  std::uint64_t FreshFrom() const noexcept { return m_usedEnd; }

  // Transactions

  /// Makes everything written so far durable. On an error the last committed state stays, and what is held
  /// back too: the commit may be repeated, unless flushing or applying failed, after which only opening the
  /// file again can tell what it holds.
  void Commit();
  void CommitForClose();
  /// From now on nothing is written any more.
  void Discard() noexcept { m_isDiscarded = true; }

  // Failures inside HDF5's callbacks, which cannot raise them

  void RememberFailure(FileError const& error) { m_failure = error; }
  void ForgetFailure() noexcept { m_failure.reset(); }
  std::optional<FileError> const& LastFailure() const noexcept { return m_failure; }

private:
  TransactionalFile(std::string const& path, PositionedFile::Mode mode, bool isScratch);

  void Recover();
  void Sync();
  void WriteJournal(Journal const& journal);
  void Apply(Journal const& journal);
  void FinishCommit();

  PositionedFile m_file;
  PageOverlay m_overlay;
  bool m_isScratch;
  std::uint64_t m_end = 0;          ///< of allocation
  std::uint64_t m_committedEnd = 0; ///< below it lies the committed state
  std::uint64_t m_reservedEnd = 0;  ///< space is reserved up to here
  std::uint64_t m_usedEnd = 0;      ///< the furthest end since opening
  std::uint64_t m_sequence = 0;
  bool m_areValuesDirty = false; ///< written since the last flush
  bool m_isAllReserved;          ///< no holes below the end
  bool m_hasCommitted = false;
  bool m_isDiscarded = false;
  bool m_isJournalPending = false; ///< a whole journal is in the file, not all of it applied
  bool m_isDead = false;           ///< a flush failed: what the disk holds is unknown
  std::optional<FileError> m_failure;
};

} // namespace store
