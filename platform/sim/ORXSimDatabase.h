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

  /// For files created from now on; durable unless it is called. A scratch file replaces an existing one.
  void SetDurability(ORXSimDurability durability) noexcept { m_durability = durability; }
  /// Creates and opens a file. An existing file is refused, unless `flags` has replaceExisting or the file is
  /// a scratch file. `n` has no meaning and is -1.
  ORXSimFileID CreateFile(ORXUnicodeString const& name, int flags, int n);
  /// Opens an existing file in its last committed state; a commit that was cut off is finished, or with
  /// `readOnly` only seen as finished. A read-only file is not written to by any means.
  ORXSimFileID OpenFile(ORXUnicodeString const& name, bool readOnly);
  /// Commits what is outside of any transaction, abandons transactions that are open, and closes. When that
  /// commit fails, the error leaves the file open: free some space and close again, or destroy the database.
  /// Closing an unopened database does nothing.
  void Close();

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
