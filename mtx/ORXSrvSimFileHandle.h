#pragma once

#include "core/atr_String.h"
#include "core/cow_CountedHld.h"
#include "core/mem_Allocator.h"
#include "core/orx_export.h"
#include "sim/ORXSimIdentifiers.h"

#include <memory>

class ORXSimDatabase;

/// A scratch database file with one context, which exists as long as the object. Made and shared by
/// ORXSrvSimFileHandle.
class ORX_EXPORT ORXSrvSimFileHandleRepr : public mem_AllocationOperators {
public:
  /// Creates the file `fileName`; a relative name counts from the current directory. A scratch file that a
  /// dead process has left under the name is removed, and a symbolic link too, but not its target. Errors are
  /// ORXSimException: fileInUse for a file that somebody has open; notOpened, also for a database that is not
  /// scratch; writeFailed.
  explicit ORXSrvSimFileHandleRepr(atr_String const& fileName);
  ORXSrvSimFileHandleRepr(ORXSrvSimFileHandleRepr const&) = delete;
  ORXSrvSimFileHandleRepr& operator=(ORXSrvSimFileHandleRepr const&) = delete;
  /// Closes and deletes the file, whatever the current directory is now. Never fails: a file that is gone,
  /// was replaced by another one, or cannot be deleted is left alone.
  ~ORXSrvSimFileHandleRepr();

  ORXSimContextID ContextID() const noexcept { return m_context; }

private:
  ORX_LOCAL explicit ORXSrvSimFileHandleRepr(std::unique_ptr<ORXSimDatabase> database);

  std::unique_ptr<ORXSimDatabase> m_database; ///< open
  ORXSimContextID m_context;                  ///< null until it was created
};

/// A shared handle on a scratch database file, for values that are too many for memory:
///
///     ORXSrvSimFileHandle file;
///     file.Associate(name);                       // creates the file
///     ORXSimContext context(file.ContextID());    // ... collections, distributions
///
/// States: not associated -> Associate -> associated. Copies share the state of their original and the file;
/// the last copy deletes the file. A copy that was taken before Associate stays not associated.
///
/// Calls that do not suit the state are faults of the caller: they are reported on standard error and end the
/// process.
class ORX_EXPORT ORXSrvSimFileHandle : public cow_CountedHld<ORXSrvSimFileHandleRepr> {
public:
  /// Not associated.
  ORXSrvSimFileHandle() = default;

  /// Creates the file and its context; errors as in ORXSrvSimFileHandleRepr leave the handle not associated.
  /// REQUIRES: not associated.
  void Associate(atr_String fileName);
  /// The context in the file.
  /// REQUIRES: associated.
  ORXSimContextID ContextID() const;
};
