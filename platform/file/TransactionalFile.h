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

/// An open file whose metadata changes only at commits, each atomic and durable, while raw data is written to
/// the file at once. (HDF5 uses the same two words.)
///
///     between commits   metadata is held in memory; the file on disk has the last committed state, and
///                       behind its end the space that was allocated since
///     commit            1  writes a journal of the metadata behind the end of the file, and syncs it and
///                          the raw data
///                       2  writes a mark that the journal is due over HDF5's signature, the first 8 bytes of
///                          the file, and syncs it: from here on the commit has happened
///                       3  writes the metadata to its file offsets, and syncs it
///                       4  writes the signature, syncs it, and cuts the journal off
///     opening           with the mark, finishes the commit from the journal; a journal that is not whole is
///                       an error. A read-only opening reads the journal into memory and leaves the file as
///                       it is. Without the mark, bytes behind the end have no meaning
///
/// A commit that raises an error has not happened; a commit that returns has happened. When steps 3 and 4
/// fail twice, the commit returns all the same. The next use that writes, or the next opening, then tries to
/// finish it and raises that failure. Other programs refuse the file as long as it has the mark, so they
/// never read one that is half old and half new.
///
/// A new file gets its name at the first commit. A scratch file has no journal and is never synced: its
/// metadata is written once, when the file is closed for good.
///
/// Created by Create or Open, used by one thread, lent to HDF5 through MakeFileAccess; it must outlive that
/// use. Errors are FileError. A process that was forked from the owner writes nothing.
///
/// Reading is possible in every state. Writing, reserving and committing depend on the state:
///
///     Open         they are possible
///                  -> Due         steps 3 and 4 of a commit have failed, and failed once more
///                  -> Broken      raw data or the mark could not be synced, or RefuseToCommit
///                  -> Discarding  Discard
///     Due          the first of them finishes the commit from its journal, or raises that failure
///                  -> Open        the commit is finished
///                  -> Broken, Discarding as above
///     Broken       they raise; the state of the disk is unknown
///                  -> Discarding  as above
///     Discarding   writes by HDF5 and reservations are skipped without an error, because HDF5 does not
///                  survive a failure of closing; the others raise. This state is final
///
/// When HDF5 closes the file, a commit that is due is finished if that is possible, in every state.
class TransactionalFile {
public:
  struct Statistics {
    std::uint64_t commits = 0;
    std::uint64_t replays = 0;
  };

  // Opening and closing

  /// Makes an empty file. An existing file of that name is replaced at the first commit if
  /// `replacesExisting`, and is an error otherwise.
  static std::unique_ptr<TransactionalFile> Create(std::string const& path, bool isScratch,
                                                   bool replacesExisting);
  static std::unique_ptr<TransactionalFile> Open(std::string const& path, bool readOnly);
  TransactionalFile(TransactionalFile const&) = delete;
  TransactionalFile& operator=(TransactionalFile const&) = delete;
  /// Drops all changes since the last commit, and their space. Deletes a new file that was never committed.
  ~TransactionalFile();

  // Transactions

  /// Makes the present metadata and all raw data durable. HDF5 must have flushed its caches. After an error
  /// the file has the last committed state; the commit may be repeated, for instance once there is space, or
  /// discarded. Does nothing for a scratch file.
  void Commit();
  /// Does the same, and writes the metadata of a scratch file.
  void CommitForClose();
  /// Stops all writing. The metadata returns to the last commit when HDF5 closes the file.
  void Discard() noexcept { m_state = State::Discarding; }
  /// Allows only reading and closing from now on, because the metadata in memory is wrong.
  void RefuseToCommit() noexcept {
    if (!IsDiscarding()) m_state = State::Broken;
  }
  /// Writes the last committed metadata, with the present raw data, to a new file.
  void CopyTo(std::string const& path, bool replacesExisting);

  // Raw data

  /// The file itself, for raw data, which lies where HDF5 has allocated it.
  PositionedFile& File() noexcept { return m_file; }
  /// Call this before writing raw data to File(); raises FileError when writing is not allowed.
  void WillWriteRawData() {
    if (m_state != State::Open || !m_file.IsOwner()) RequireUsable("writing to");
    m_hasNewRawData = true;
  }
  /// Calls `read`, which makes HDF5 read raw data, and returns the range that HDF5 asks for. Nothing is read
  /// from the file.
  FileRange FindRawData(std::function<void()> const& read);
  /// Reserves `bytes` behind the present end of allocation, so that HDF5 can allocate them without meeting a
  /// full disk; holds until the next commit.
  void ReserveGrowth(std::uint64_t bytes);
  /// The offset from which on the file has never held anything: space that is allocated there reads as zeros.
  /// Call this before allocating.
  std::uint64_t FreshFrom() const noexcept { return m_usedEnd; }

  /// Drops the held metadata of a range whose space is given up.
  void ReleaseMetadata(std::uint64_t offset, std::uint64_t bytes) { m_overlay.ReleaseBytes(offset, bytes); }

  // Queries

  bool IsReadOnly() const noexcept { return m_file.IsReadOnly(); }
  Statistics const& Counts() const noexcept { return m_counts; }
  /// The last exception that could not pass through HDF5, or null.
  std::exception_ptr const& LastFailure() const noexcept { return m_lastFailure; }
  void ForgetFailure() noexcept { m_lastFailure = nullptr; }

  // For the driver

  /// To be called when HDF5 opens the file, and when it closes the file.
  void Attach() noexcept;
  void Detach() noexcept;
  bool IsAttached() const noexcept { return m_isAttached; }
  std::uint64_t EndOfAllocation() const noexcept { return m_end; }
  /// Reserves the growth, and after a small growth some space for the next.
  void SetEndOfAllocation(std::uint64_t end);
  /// Does the same for metadata, but does not fail on a full disk: metadata is in memory, and its space can
  /// wait for the commit. HDF5 would leave its caches locked when it gets no space during a change of
  /// metadata.
  void SetEndOfMetadata(std::uint64_t end);
  /// Gives space back when it is the last of the allocation and not part of the committed state. Other space
  /// is lost until HDF5 uses it again.
  void Free(std::uint64_t offset, std::uint64_t bytes);
  std::uint64_t EndOfFile() const noexcept;
  void ReadMetadata(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteMetadata(std::uint64_t offset, void const* from, std::size_t bytes);
  void ReadRawData(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteRawData(std::uint64_t offset, void const* from, std::size_t bytes);
  /// Keeps the exception that is being handled; to be called inside a catch clause.
  void KeepFailure() noexcept { m_lastFailure = std::current_exception(); }

private:
  using Pages = std::span<PageOverlay::Page const* const>;
  enum class State : std::uint8_t { Open, Due, Broken, Discarding }; ///< see the class comment

  TransactionalFile(std::string const& path, PositionedFile::Mode mode, bool isScratch);
  bool IsDiscarding() const noexcept { return m_state == State::Discarding; }
  void RecoverCommit();
  void LoadJournal(Journal::Trailer const& trailer);
  void RequireUsable(char const* operation);
  void Sync();
  void HoldSignature();
  void CommitFirst();
  void CommitPages();
  Journal::Trailer WriteJournal(Pages pages);
  void DropJournal(std::uint64_t position) noexcept;
  void MarkDue();
  void RestoreSignature();
  void ApplyPages(Pages pages);
  void EndDueCommit(std::uint64_t end) noexcept;
  void FinishCommit();
  bool TryToFinishCommit() noexcept;
  void CutTo(std::uint64_t end) noexcept;
  void DropUncommitted() noexcept;
  void ReserveUpTo(std::uint64_t end);

  PositionedFile m_file;
  PageOverlay m_overlay; ///< metadata that is not in the file; in a read-only file the journal's
  bool m_isScratch;
  bool m_isAttached = false; ///< HDF5 has the file open
  bool m_hasNewRawData = false;
  State m_state = State::Open;
  std::optional<Journal::Trailer> m_dueJournal; ///< set in Due, and in the states that follow it
  std::uint64_t m_end = 0;                      ///< end of allocation as HDF5 has it
  std::uint64_t m_committedEnd = 0;             ///< end of the last committed state
  std::uint64_t m_usedEnd = 0;                  ///< the file has never held anything behind this offset
  std::uint64_t m_sequence = 0;
  FileRange* m_requested = nullptr; ///< during FindRawData: gets the range that HDF5 asks for; else null
  Statistics m_counts;
  std::exception_ptr m_lastFailure;
};

} // namespace orx::file
