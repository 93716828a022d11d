#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimIdentifiers.h"

#include <memory>

/// A counted handle on a record of the database: the last copy frees the record.
template<class Record>
using ORXSimRecHandle = std::shared_ptr<Record>;

class ORXSimTransactionRepr;

/// Brackets structural changes in one context: collections, member sets, types, distributions, their drawers
/// and extensions. A context has at most one open transaction. Copies share the transaction. Destroying the
/// last copy of an uncommitted transaction abandons it: the context is as it was at the opening, and
/// identifiers made since are refused (staleIdentifier, 10). Values of cells are not rolled back.
///
///     open -> Commit returns  -> over
///          -> last copy destroyed, or ORXSimDatabase::Close -> abandoned, over
///          -> Commit raises   -> still open
///
/// Errors are ORXSimException.
class ORX_EXPORT ORXSimTransaction {
public:
  /// Opens a transaction. Raises staleIdentifier (10) when the context's file is closed, wrongState (30) when
  /// the context has an open transaction already, writeFailed (70) when the file is read-only.
  explicit ORXSimTransaction(ORXSimContextID context);

  /// Makes the changes since the opening durable, with every value written so far, and ends the transaction.
  /// Unsaved changes of other contexts are committed too, unless these have an open transaction. A scratch
  /// file is not written: its structure is saved when the database is closed.
  ///
  /// On writeFailed (70) the file holds the former state and the transaction stays open. It can be committed
  /// again once there is space; after an error of the device, only when the file was closed and opened again.
  /// (A disk that fails twice, for the commit and for taking the commit back, leaves open which state the
  /// file holds; the error says so.) invalidArgument (20) says that the context has more labels than a file
  /// can hold. A second call after success raises wrongState (30), a closed file staleIdentifier (10).
  ///
  /// Commit also returns when the disk holds the commit but the last step of it failed: the next write,
  /// commit or opening finishes this step, or raises writeFailed.
  void Commit();

  ORXSimContextID Context() const noexcept;
  /// False once the transaction was committed or abandoned, or the file closed.
  bool IsOpen() const noexcept;

private:
  ORXSimRecHandle<ORXSimTransactionRepr> m_record;
};
