#pragma once

#include "file/Journal.h"
#include "file/PageOverlay.h"
#include "file/PositionedFile.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace orx::file {

/// An open file whose structure (what HDF5 calls metadata) changes only at commits, each atomic and durable,
/// while values (raw data) are written in place at once.
///
///     between commits   structure is held in memory; the file on disk is the last committed state, and what
///                       was allocated since, behind its end
///     commit            1  a journal of the structure behind the end of the file; it and the values to disk
///                       2  in place of HDF5's signature, the first 8 bytes, a mark that the journal is due;
///                          to disk: from here on the commit has happened
///                       3  the structure to its places, to disk
///                       4  the signature, to disk; the journal is cut off
///     opening           with the mark, the journal is finished, or it is an error that it is not whole;
///                       read-only, it is read into memory and the file is not touched. Without the mark
///                       what lies behind the end means nothing
///
/// So a commit that raises an error has not happened, and one that returns has. When steps 3 and 4 fail, and
/// fail once more, it returns all the same: the next use that writes tries to finish it and raises that
/// failure, and so does the next opening. Other programs refuse the file as long as it has the mark, instead
/// of reading one that is half old and half new.
///
/// A new file has its name from the first commit on. A scratch file has no journal and is not synced: its
/// structure is written once, when it is closed for good.
///
/// Created by Create or Open, used by one thread, lent to HDF5 through MakeFileAccess; it must outlive that
/// use. Errors are FileError. In a process that was forked from the owner nothing is written.
///
/// Reading is possible in every state. Writing, reserving and committing depend on the state:
///
///     Open         they are possible
///                  -> Due         steps 3 and 4 of a commit have failed, and failed once more
///                  -> Broken      values or the mark could not be brought to the disk, or RefuseToCommit
///                  -> Discarding  Discard
///     Due          the first of them finishes the commit from its journal, or raises that failure
///                  -> Open        the commit is finished
///                  -> Broken, Discarding as above
///     Broken       they raise; what the disk has is unknown
///                  -> Discarding  as above
///     Discarding   what HDF5 writes is dropped, since HDF5 does not survive that closing a file fails; all
///                  else raises. Nothing leads out of this state
///
/// When HDF5 closes the file, a commit that is due is finished if that is possible, in every state.
class TransactionalFile {
public:
  struct Statistics {
    std::uint64_t commits = 0;
    std::uint64_t pages = 0;
    std::uint64_t journalBytes = 0;
    std::uint64_t replays = 0;
  };

  // Opening and closing

  /// An empty file; an existing one is replaced, at the first commit, or an error.
  static std::unique_ptr<TransactionalFile> Create(std::string const& path, bool isScratch,
                                                   bool replacesExisting);
  static std::unique_ptr<TransactionalFile> Open(std::string const& path, bool readOnly);
  TransactionalFile(TransactionalFile const&) = delete;
  TransactionalFile& operator=(TransactionalFile const&) = delete;
  /// Drops what was not committed, and its space. Of a new file that was never committed nothing is left.
  ~TransactionalFile();

  // Transactions

  /// Makes durable what the structure is now, and all values. HDF5 must have flushed its caches. An error
  /// leaves the last committed state, and the commit may be tried again (once there is space, say) or
  /// discarded. For a scratch file nothing happens.
  void Commit();
  /// The same, and for a scratch file the structure is written.
  void CommitForClose();
  /// From now on nothing is written; the structure goes back to the last commit when HDF5 closes the file.
  void Discard() noexcept { m_state = State::Discarding; }
  /// From now on only reading and closing are left: the structure is not what it should be.
  void RefuseToCommit() noexcept {
    if (!IsDiscarding()) m_state = State::Broken;
  }
  /// Writes the last committed structure, with the values as they are now, to a new file.
  void CopyTo(std::string const& path, bool replacesExisting);

  // Values

  /// The file itself, for values: they lie inside of it wherever HDF5 has allocated them.
  PositionedFile& File() noexcept { return m_file; }
  /// To be called before values are written to File(): raises when that may not be.
  void WillWriteValues() {
    if (m_state != State::Open || !m_file.IsOwner()) RequireUsable("writing to");
    m_hasNewValues = true;
  }
  /// The values that `read` makes HDF5 ask for; they are not read.
  FileRange PlaceOfValues(std::function<void()> const& read);
  /// Makes sure that HDF5 can allocate so much behind the present end without meeting a full disk; holds
  /// until the next commit.
  void ReserveGrowth(std::uint64_t bytes);
  /// From here on the file has never held anything: what is allocated there reads as zero. To be asked before
  /// allocating.
  std::uint64_t FreshFrom() const noexcept { return m_usedEnd; }

  /// What is held of this range is forgotten: its space is given up.
  void ReleaseStructure(std::uint64_t offset, std::uint64_t bytes) { m_overlay.Release(offset, bytes); }

  // Queries

  bool IsReadOnly() const noexcept { return m_file.IsReadOnly(); }
  Statistics const& Counts() const noexcept { return m_counts; }
  /// The last exception that could not pass through HDF5; null: there was none.
  std::exception_ptr const& LastFailure() const noexcept { return m_lastFailure; }
  void ForgetFailure() noexcept { m_lastFailure = nullptr; }

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
  /// Inside a catch clause.
  void KeepFailure() noexcept { m_lastFailure = std::current_exception(); }

private:
  using Pages = std::span<PageOverlay::Page const* const>;
  enum class State : std::uint8_t { Open, Due, Broken, Discarding }; ///< see the class comment

  TransactionalFile(std::string const& path, PositionedFile::Mode mode, bool isScratch);
  bool IsDiscarding() const noexcept { return m_state == State::Discarding; }
  void Recover();
  void LoadJournal(Journal::Trailer const& trailer);
  void RequireUsable(char const* operation);
  void Sync();
  void HoldSignature();
  void CommitFirst();
  void CommitPages();
  Journal::Trailer WriteJournal(Pages pages);
  void DropJournal(std::uint64_t position) noexcept;
  void MarkDue();
  void TakeMarkBack();
  void Apply(Pages pages);
  void EndDueCommit(std::uint64_t end) noexcept;
  void FinishCommit();
  bool TryToFinishCommit() noexcept;
  void CutTo(std::uint64_t end) noexcept;
  void DropUncommitted() noexcept;
  void ReserveUpTo(std::uint64_t end);

  PositionedFile m_file;
  PageOverlay m_overlay; ///< structure that is not in the file; read-only: that of a journal
  bool m_isScratch;
  bool m_isAttached = false; ///< HDF5 has the file open
  bool m_hasNewValues = false;
  State m_state = State::Open;
  std::optional<Journal::Trailer> m_dueJournal; ///< set in Due, and in the states that follow it
  std::uint64_t m_end = 0;                      ///< of allocation, as HDF5 has it
  std::uint64_t m_committedEnd = 0;             ///< the last committed state lies before it
  std::uint64_t m_usedEnd = 0;                  ///< behind it the file has never held anything
  std::uint64_t m_sequence = 0;
  FileRange* m_asked = nullptr; ///< set: values are not read, it learns which were asked for
  Statistics m_counts;
  std::exception_ptr m_lastFailure;
};

} // namespace orx::file
