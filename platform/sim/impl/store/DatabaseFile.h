#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace orx::file {
class TransactionalFile;
}

namespace orx::store {

/// Of the files that are written. Those of version 1 are read, and rewritten at their first change.
constexpr int formatVersion = 2;

/// A database file as HDF5 sees it: opened through the transactional driver, its format recognised, committed
/// and closed. The identifiers that it hands out are HDF5's hid_t. Errors are ORXSimException.
class DatabaseFile {
public:
  /// A new file, committed while it is still empty. Nobody sees it before; a file that it replaces stays
  /// until then. A scratch file takes the place of one that a dead process left, of a database only if
  /// `replacesExisting`.
  static std::unique_ptr<DatabaseFile> Create(std::string const& path, bool isScratch, bool replacesExisting);
  static std::unique_ptr<DatabaseFile> Open(std::string const& path, bool readOnly);

  DatabaseFile(DatabaseFile const&) = delete;
  DatabaseFile& operator=(DatabaseFile const&) = delete;
  /// Closes the file; what was not committed is dropped.
  ~DatabaseFile();

  std::string const& Path() const noexcept { return m_path; }
  bool IsReadOnly() const noexcept { return m_isReadOnly; }
  bool IsScratch() const noexcept { return m_isScratch; }
  std::int64_t Id() const noexcept;
  /// Of its format: 1, or formatVersion.
  int Version() const noexcept { return m_version; }
  file::TransactionalFile& Bytes() const noexcept { return *m_bytes; }

  /// Inside a catch clause: raises what was caught as an ORXSimException. See Guarded.h.
  [[noreturn]] void RaiseTranslated() const;
  /// Forgets a failure of the file that was dealt with.
  void ForgetFailure() const noexcept;

  /// Takes the file's name away; the file goes when it is closed.
  void Unlink() noexcept;

  // Inside Guarded

  /// A path for a new object that gets its place at a commit. Objects are linked from the start: HDF5 1.10
  /// forgets, once its cache has dropped one without a link, that its link is still to come, and later gives
  /// its space to others. What an opening for writing finds there has no place, and is removed.
  std::string PendingPath();
  void Move(std::string const& from, std::string const& to);
  void Remove(std::string const& path) noexcept;
  bool Has(std::string const& path) const;
  /// A path for an object that is no longer wanted: it is moved there, so that its space is not given to
  /// others before the next commit is durable.
  std::string TrashPath();

  /// Says that the file has the present format from the next commit on; or again the former one.
  void WriteVersion(int version);

  // Not inside Guarded

  void Commit();
  /// Also for a scratch file, whose structure is written now.
  void CommitForClose();
  /// Writes the last committed state to a new file.
  void CopyTo(std::string const& path, bool replacesExisting);

private:
  struct Hdf5;

  DatabaseFile(std::string path, bool isReadOnly, bool isScratch);
  [[noreturn]] void RaiseNotHdf5() const;
  void MakeFormat();
  void CheckFormat();
  void EmptyCommittedTrash() noexcept;
  void NoteCommit() noexcept { m_isTrashCommitted = m_trashed > 0; }
  void RemovePendingGroupWhenEmpty();
  void PrepareCommit();

  std::string m_path;
  bool m_isReadOnly;
  bool m_isScratch;
  int m_version;
  bool m_isTrashCommitted = false; ///< it may be emptied
  int m_trashed = 0;               ///< number of the next object in the trash
  int m_pending = 0;               ///< number of the next object that waits for a commit
  int m_pendingChecked = 0;        ///< the same when their group was last removed
  std::unique_ptr<file::TransactionalFile> m_bytes;
  std::unique_ptr<Hdf5> m_hdf5;
};

} // namespace orx::store
