#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimIdentifiers.h"

#include <memory>

/// A counted handle on a record of the database.
template<class Record>
using ORXSimRecHandle = std::shared_ptr<Record>;

class ORXSimTransactionRepr;

/// Brackets structural changes in one context: collections, member sets, types, distributions, their drawers
/// and extensions. A context has at most one open transaction. Destroying the last copy of an uncommitted
/// transaction abandons it: the context is as it was at the opening, and identifiers made since are refused.
class ORX_EXPORT ORXSimTransaction {
public:
  /// Raises wrongState when the context already has an open transaction, writeFailed when its file is
  /// read-only.
  explicit ORXSimTransaction(ORXSimContextID context);

  /// Makes what was done since the opening durable, and with it every value written so far. When it raises
  /// writeFailed, the file holds the former state and the transaction stays open: it may be committed again
  /// once there is space, or, when the disk has failed, not before the file was closed and opened again. (A
  /// disk that fails twice, for the commit and for taking it back, leaves that open; the error says so.)
  /// After success the transaction is over; a second call raises wrongState. Success is also when the disk
  /// holds the commit, but its last step failed: the next write, commit or opening finishes it, or raises
  /// writeFailed.
  void Commit();

  ORXSimContextID Context() const noexcept;
  bool IsOpen() const noexcept;

private:
  ORXSimRecHandle<ORXSimTransactionRepr> m_record;
};
