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

/// How much a file is worth.
enum class ORXSimDurability {
  Durable, ///< what was committed survives a killed process, and a power cut where the disk honours fsync
  Scratch  ///< for a file that its process deletes: structure is written at Close, nothing waits for the disk
};

/// An open database file: an HDF5 file that any HDF5 tool reads at every committed state.
///
/// States: unopened -> CreateFile or OpenFile -> open -> Close -> unopened. One process may have a file open
/// for writing, or any number for reading. Structure (contexts, collections, member sets, distributions) is
/// durable once it is committed, see ORXSimTransaction; structure made outside of any transaction goes with
/// the next commit or with Close. Values are written in place as they are given and are not rolled back.
/// Errors are ORXSimException.
///
/// fork: a child has copies of the open databases. It may read through them; whatever would change a file
/// raises writeFailed there, and neither their destruction nor the child's exit touches a file. The lock ends
/// when the owner closes the file; should the owner die, when its last such child ends or calls exec.
///
/// Signals: while a file is open for writing, SIGXFSZ is ignored if the host has no handler of its own, so
/// that a file-size limit is an error. A file that another program shortens while it is open cannot be read
/// any more: Commit and Close raise writeFailed, but access to cells that are gone is SIGBUS.
class ORX_EXPORT ORXSimDatabase {
public:
  // Creation flags.
  static constexpr int replaceExisting = 1; ///< an existing file that nobody has open is replaced

  /// An unopened database.
  ORXSimDatabase() noexcept = default;
  ORXSimDatabase(ORXSimDatabase const&) = delete;
  ORXSimDatabase& operator=(ORXSimDatabase const&) = delete;
  /// Closes an open file as a killed process would: what was not committed is dropped.
  ~ORXSimDatabase();

  // Opening and closing

  /// For files created from now on; durable unless it is called. A scratch file replaces one that a process
  /// that died has left, and the first one in a folder has all such files there (*.sim) deleted.
  void SetDurability(ORXSimDurability durability) noexcept { m_durability = durability; }
  /// Creates and opens a file. An existing file is refused, unless `flags` has replaceExisting; a scratch
  /// file is refused only where there is a database that was committed or closed, or what somebody has open.
  /// `n` has no meaning and is -1. A durable file is built beside its name, as NAME.orx-new, and gets the
  /// name as an empty database that others can open; one that it replaces is there until then. A process that
  /// is killed in between leaves that file to the next creation.
  ORXSimFileID CreateFile(ORXUnicodeString const& name, int flags, int n);
  /// Opens an existing file in its last committed state; a commit that was cut off is finished, or with
  /// `readOnly` only seen as finished. A read-only file is not written to by any means.
  ORXSimFileID OpenFile(ORXUnicodeString const& name, bool readOnly);
  /// Writes the last committed state, with the values as they are now, to a new file, which is durable when
  /// this returns. An existing one is refused unless `flags` has replaceExisting, which must not be open. A
  /// copy made by other means while the file is open for writing may be torn, and be refused or wrong. Raises
  /// wrongState for a scratch file.
  void BackUp(ORXUnicodeString const& name, int flags) const;
  /// Commits what is outside of any transaction, abandons transactions that are open, and closes. When that
  /// commit fails, the error leaves the file open: free some space and close again, or destroy the database.
  /// Closing an unopened database does nothing.
  void Close();
  /// Closes the file and deletes it, whatever the current directory is by now; nothing more is written. A
  /// file that another one has replaced stays. Discarding an unopened database does nothing.
  void Discard() noexcept;

  // What is inside

  /// A new context.
  ORXSimContextID CreateContext(ORXSimNamespaceID space);
  /// The contexts in the order of their creation.
  ORXSimArray<ORXSimContextID> Contexts() const;

  bool IsOpen() const noexcept { return m_open != nullptr; }
  bool IsReadOnly() const noexcept;

private:
  ORXSimFileID Attach(std::shared_ptr<orx::sim::OpenDatabase> database);
  orx::sim::OpenDatabase& Opened() const;

  ORXSimDurability m_durability = ORXSimDurability::Durable;
  std::shared_ptr<orx::sim::OpenDatabase> m_open; ///< null: unopened
};
