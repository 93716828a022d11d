#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimTransaction.h"

/// A position in a results database, given by the calling solver: the context for its distributions. It is a
/// copy of an identifier, passed by value; the file owns the context.
class ORX_EXPORT ORXSrvPosition {
public:
  explicit ORXSrvPosition(ORXSimContextID context) noexcept : m_context(context) {}

  ORXSimContext Context() const noexcept { return ORXSimContext(m_context); }
  /// Makes a persistent distribution without type and drawer, as ORXSimContext::CreateDistribution does,
  /// inside the caller's transaction. Raises ORXSimException wrongState (30) when the transaction is over or
  /// on another context.
  ORXSimDistributionID CreateDistribution(ORXSimTransaction& transaction, ORXSimGrid const& grid,
                                          ORXSimRangeType const& range) const;
  /// Does the same with a type, given by its zero-based index in the context's schema; raises invalidArgument
  /// (20) when the schema has no such index.
  ORXSimDistributionID CreateTypedDistribution(ORXSimTransaction& transaction, ORXSimGrid const& grid,
                                               int typeIndex, ORXSimRangeType const& range) const;

private:
  ORXSimContextID m_context;
};
