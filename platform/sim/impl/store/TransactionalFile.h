#pragma once

#include "sim/impl/store/Journal.h"
#include "sim/impl/store/PageOverlay.h"
#include "sim/impl/store/PositionedFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace orx::store {

/// An open file whose structure (what HDF5 calls metadata) changes only at commits, each atomic and durable,
/// while values (raw data) are written in place at once.
///
///     between commits   structure is held in memory; the file on disk is the last committed state, and what
///                       was allocated since, behind its end
///     commit            values to disk; a journal of the structure behind the end of the file, to disk; the
///                       structure to its places, to disk; the journal is cut off
///     opening           a whole journal is finished, a torn one is cut off; read-only, a whole one is read
///                       into memory and the file is not touched
///
/// While a commit is being applied the first 8 bytes are not a signature of HDF5, so that other programs
/// refuse the file instead of reading one that is half old and half new.
///
/// A scratch file has no journal and is not synced: its structure is written once, when it is closed for
/// good.
///
/// Created by Create or Open, used by one thread, lent to HDF5 through MakeFileAccess; it must outlive that
/// use. Errors are FileError. States, besides open: discarding (what HDF5 still writes is dropped, until it
/// closes the file), and broken (a sync failed, or a commit got stuck between journal and end: only reading
/// and closing are left, the next opening finds out).
class TransactionalFile {
public:
  struct Statistics {
    std::uint64_t commits = 0;
    std::uint64_t pages = 0;
    std::uint64_t journalBytes = 0;
    std::uint64_t replays = 0;
  };

  // Opening and closing

  /// An empty file; an existing one is replaced or an error.
  static std::unique_ptr<TransactionalFile> Create(std::string const& path, bool isScratch,
                                                   bool replacesExisting);
  static std::unique_ptr<TransactionalFile> Open(std::string const& path, bool readOnly);
  TransactionalFile(TransactionalFile const&) = delete;
  TransactionalFile& operator=(TransactionalFile const&) = delete;
  /// Drops what was not committed, and its space. A new file that was never committed is left empty.
  ~TransactionalFile();

  // Transactions

  /// Makes durable what the structure is now, and all values. HDF5 must have flushed its caches. An error
  /// before the journal is durable leaves the last committed state, and the commit may be tried again (once
  /// there is space, say) or discarded. For a scratch file nothing happens.
  void Commit();
  /// The same, and for a scratch file the structure is written.
  void CommitForClose();
  /// From now on nothing is written; the structure goes back to the last commit when HDF5 closes the file.
  void Discard() noexcept { m_isDiscarding = true; }

  // Values

  /// The file itself, for values: they lie inside of it wherever HDF5 has allocated them.
  PositionedFile& File() noexcept { return m_file; }
  /// Values were written to File(), or will be before the next commit.
  void ValuesChanged() noexcept { m_hasNewValues = true; }
  /// Makes sure that HDF5 can allocate so much behind the present end without meeting a full disk; holds
  /// until the next commit.
  void ReserveGrowth(std::uint64_t bytes);
  /// From here on the file has never held anything: what is allocated there reads as zero. To be asked before
  /// allocating.
  std::uint64_t FreshFrom() const noexcept { return m_usedEnd; }

  // Queries

  bool IsReadOnly() const noexcept { return m_file.IsReadOnly(); }
  Statistics const& Counts() const noexcept { return m_counts; }
  /// The last failure that was passed on through HDF5, which cannot carry exceptions.
  std::optional<FileError> const& LastFailure() const noexcept { return m_lastFailure; }
  void ForgetFailure() noexcept { m_lastFailure.reset(); }

  // For the driver

  /// HDF5 opens the file, and closes it.
  void Attach() noexcept;
  void Detach() noexcept;
  bool IsAttached() const noexcept { return m_isAttached; }
  std::uint64_t EndOfAllocation() const noexcept { return m_end; }
  /// Growth is reserved, with some more for the next small one.
  void SetEndOfAllocation(std::uint64_t end);
  /// The same for structure. It is in memory, so its space can wait for the commit; and HDF5 leaves its
  /// caches locked when it is refused space in the midst of a change of structure.
  void SetEndOfStructure(std::uint64_t end);
  /// Takes the space at the end back, if no committed state has it; other space is lost until HDF5 reuses it.
  void Free(std::uint64_t offset, std::uint64_t bytes);
  std::uint64_t EndOfFile() const noexcept;
  void ReadStructure(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteStructure(std::uint64_t offset, void const* from, std::size_t bytes);
  void ReadValues(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteValues(std::uint64_t offset, void const* from, std::size_t bytes);
  void KeepFailure(FileError const& error) { m_lastFailure = error; }

private:
  using Pages = std::span<PageOverlay::Page const* const>;

  TransactionalFile(std::string const& path, PositionedFile::Mode mode, bool isScratch);
  void Recover();
  void LoadJournal(Journal::Trailer const& trailer);
  void ApplyJournal(Journal::Trailer const& trailer);
  void RequireUsable(char const* operation) const;
  void Sync();
  void SyncValues();
  void HoldSignature();
  void WriteJournal(Pages pages);
  void ApplyPages(Pages pages);
  void CutToEnd();
  void DropUncommitted() noexcept;
  void ReserveUpTo(std::uint64_t end);

  PositionedFile m_file;
  PageOverlay m_overlay; ///< structure that is not in the file; read-only: that of a journal
  bool m_isScratch;
  bool m_isNameDurable;
  bool m_isAttached = false;
  bool m_isDiscarding = false;
  bool m_hasNewValues = false;
  bool m_isSyncBroken = false;      ///< nobody knows what a failed sync has left on the disk
  bool m_isJournalPending = false;  ///< the next opening finishes it
  std::uint64_t m_end = 0;          ///< of allocation, as HDF5 has it
  std::uint64_t m_committedEnd = 0; ///< the last committed state lies before it
  std::uint64_t m_usedEnd = 0;      ///< behind it the file has never held anything
  std::uint64_t m_sequence = 0;
  Statistics m_counts;
  std::optional<FileError> m_lastFailure;
};

} // namespace orx::store
