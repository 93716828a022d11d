#pragma once

#include "core/ORXUnicodeString.h"
#include "core/atr_String.h"
#include "core/orx_export.h"
#include "sim/ORXSimArray.h"
#include "sim/ORXSimIdentifiers.h"

#include <memory>

namespace orx::sim {
class OpenDatabase;
}

/// How long the content of a file has to last.
enum class ORXSimDurability {
  Durable, ///< a commit survives a killed process, and a power cut where the disk honours fsync
  Scratch  ///< for a file that its process deletes: structure is written at Close, no call waits for the disk
};

/// An open database file: an HDF5 file that any HDF5 tool reads at every committed state.
///
/// States: unopened -> CreateFile or OpenFile -> open -> Close -> unopened. The object owns everything inside
/// the file; identifiers and handles of its objects are refused (staleIdentifier, 10) after it was closed.
/// One process may have a file open for writing, or any number for reading. Structure (contexts, collections,
/// member sets, distributions) is durable once it is committed, see ORXSimTransaction; structure made outside
/// of any transaction goes with the next commit or with Close. Values are written in place as they are given
/// and are not rolled back.
///
/// Errors are ORXSimException; docs/errors.md has causes and cures. After an error the database and the file
/// are as before, unless an operation says otherwise.
///
/// Threads: all calls for all databases of a process come from one thread; nothing is locked.
///
/// fork: a child has copies of the open databases. It may read through them; a call that would change a file
/// raises writeFailed (70) there, and neither their destruction nor the child's exit touches a file. The lock
/// ends when the owner closes the file. When the owner dies, the lock ends once all such children have ended
/// or called exec.
///
/// Signals: while a file is open for writing, SIGXFSZ is ignored if the host has no handler for it, and a
/// file-size limit is an error (70). When another program shortens an open file, Commit and Close raise
/// writeFailed (70), and access to cells that are gone is the signal SIGBUS.
class ORX_EXPORT ORXSimDatabase {
public:
  // Creation flags
  static constexpr int replaceExisting = 1; ///< an existing file that nobody has open is replaced

  /// An unopened database.
  ORXSimDatabase() noexcept = default;
  ORXSimDatabase(ORXSimDatabase const&) = delete;
  ORXSimDatabase& operator=(ORXSimDatabase const&) = delete;
  /// Closes an open file as a killed process would: structure that was not committed is dropped. Never
  /// throws.
  ~ORXSimDatabase();

  // Opening and closing

  /// Chooses the durability of files that this object creates from now on; Durable unless it is called. A
  /// scratch file replaces a scratch file of the same name that a dead process has left, and the first
  /// scratch file that a process makes in a folder has all such leftovers there (*.sim) deleted.
  void SetDurability(ORXSimDurability durability) noexcept { m_durability = durability; }
  /// Creates and opens a file. `flags` is 0 or replaceExisting; `n` has no meaning and is -1; other values
  /// raise invalidArgument (20). A database that has a file open raises wrongState (30). An existing file
  /// raises notOpened (40) unless `flags` has replaceExisting; a scratch file is refused only where a
  /// database lies that was committed or closed. A file that a process has open raises fileInUse (41), a full
  /// disk writeFailed (70).
  ///
  /// A durable file is built as NAME.orx-new, and gets its name when it is an empty database that others can
  /// open; the file that it replaces stays until then. When the process is killed in between, NAME.orx-new
  /// is left to the next creation of NAME.
  ORXSimFileID CreateFile(ORXUnicodeString const& name, int flags, int n);
  /// Opens an existing file in its last committed state. A commit that was cut off is finished in the file,
  /// or, with `readOnly`, in memory only: a file opened read-only is never written to. Raises notOpened (40)
  /// for a file that does not exist or may not be opened, fileInUse (41) for a file that another process, or
  /// this one, has open, damaged (42) for a file that is no database, and wrongState (30) as CreateFile does.
  ORXSimFileID OpenFile(ORXUnicodeString const& name, bool readOnly);
  /// Writes the last committed state, with the values as they are now, to a new file, which is durable when
  /// this returns. A file of that name is refused (40) unless `flags` has replaceExisting, and when a process
  /// has it open (41). Raises wrongState (30) for a scratch file and an unopened database, invalidArgument
  /// (20) for other flags. A copy made by other means while the file is open for writing may be torn: such a
  /// copy is refused at its opening or has wrong content.
  void BackUp(ORXUnicodeString const& name, int flags) const;
  /// Abandons open transactions, commits the structure made outside of them, and closes. When the commit
  /// fails (writeFailed, 70), the file stays open with its former state, and the transactions stay abandoned:
  /// free some space and close again, or destroy the database. Closing an unopened database does nothing.
  void Close();
  /// Closes the file without writing and deletes it, also when the current directory has changed since. When
  /// another file has taken its name, that file stays. Discarding an unopened database does nothing.
  void Discard() noexcept;

  // Contents; wrongState (30) for an unopened database

  /// Makes a context. Raises writeFailed (70) when the file is read-only.
  ORXSimContextID CreateContext(ORXSimNamespaceID space);
  /// The contexts in the order of their creation.
  ORXSimArray<ORXSimContextID> Contexts() const;

  bool IsOpen() const noexcept { return m_open != nullptr; }
  /// True when a file is open, and was opened read-only.
  bool IsReadOnly() const noexcept;

private:
  ORX_LOCAL ORXSimFileID Attach(std::shared_ptr<orx::sim::OpenDatabase> database);
  ORX_LOCAL orx::sim::OpenDatabase& RequireOpen() const;

  ORXSimDurability m_durability = ORXSimDurability::Durable;
  std::shared_ptr<orx::sim::OpenDatabase> m_open; ///< null: unopened
};
