#pragma once

#include "sim/impl/store/Handle.h"

#include <cstdint>
#include <memory>
#include <string>

namespace orx::file {
class TransactionalFile;
}

namespace orx::store {

/// Version of the format that is written. Files of version 1 are read, and rewritten at their first change.
constexpr int formatVersion = 2;

/// A database file that HDF5 uses through the transactional driver: opens it, checks its format, commits and
/// closes it. Errors are ORXSimException.
class DatabaseFile {
public:
  /// Creates a file and commits it while it is still empty. The file has its name, and replaces an existing
  /// one, only from that commit on. A scratch file replaces one that a dead process has left, and a database
  /// only if `replacesExisting`.
  static std::unique_ptr<DatabaseFile> Create(std::string const& path, bool isScratch, bool replacesExisting);
  static std::unique_ptr<DatabaseFile> Open(std::string const& path, bool readOnly);

  DatabaseFile(DatabaseFile const&) = delete;
  DatabaseFile& operator=(DatabaseFile const&) = delete;
  /// Closes the file; changes since the last commit are dropped.
  ~DatabaseFile();

  std::string const& Path() const noexcept { return m_path; }
  bool IsReadOnly() const noexcept { return m_isReadOnly; }
  bool IsScratch() const noexcept { return m_isScratch; }
  /// HDF5's identifier of the file.
  std::int64_t Id() const noexcept { return m_hdf5.Get(); }
  /// Version of the file's format: 1, or formatVersion.
  int Version() const noexcept { return m_version; }
  file::TransactionalFile& Bytes() const noexcept { return *m_bytes; }

  /// Inside a catch clause: raises the caught exception as an ORXSimException. See Guarded.h.
  [[noreturn]] void RaiseTranslated() const;
  /// Erases the last failure of the file.
  void ForgetFailure() const noexcept;

  /// Deletes the file's name; the file itself disappears when it is closed.
  void Unlink() noexcept;

  // Objects; inside Guarded

  /// A path for a new object until a commit moves it to its own. Objects are linked from the start: when the
  /// cache of HDF5 1.10 has dropped an object without a link, HDF5 forgets that a link will follow, and later
  /// gives the object's space to others. An opening for writing removes the objects that it finds there.
  std::string PendingPath();
  void MoveObject(std::string const& from, std::string const& to);
  void RemoveObject(std::string const& path) noexcept;
  bool HasObject(std::string const& path) const;
  /// A path to which an unwanted object is moved, so that its space is not used again before the next commit
  /// is durable.
  std::string TrashPath();

  /// Writes the version of the format, which the file has from the next commit on.
  void WriteVersion(int version);

  // Commits; not inside Guarded

  void Commit();
  /// Commits, and writes the metadata of a scratch file.
  void CommitForClose();
  /// Writes the last committed state to a new file.
  void CopyTo(std::string const& path, bool replacesExisting);

private:
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
  bool m_isTrashCommitted = false; ///< the trash may be emptied
  int m_trashed = 0;               ///< number of the next object in the trash
  int m_pending = 0;               ///< number of the next pending object
  int m_pendingChecked = 0;        ///< m_pending when the group of pending objects was last removed
  std::unique_ptr<file::TransactionalFile> m_bytes;
  Handle m_hdf5; ///< closed before the bytes below HDF5 are
};

} // namespace orx::store
