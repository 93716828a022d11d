#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimTransaction.h"

/// A place in a results database, given by the calling solver. Passed by value.
class ORX_EXPORT ORXSrvPosition {
public:
  explicit ORXSrvPosition(ORXSimContextID context) noexcept : m_context(context) {}

  ORXSimContext Context() const noexcept { return ORXSimContext(m_context); }
  /// A persistent distribution inside the caller's transaction, which must be open and on this context, else
  /// wrongState.
  ORXSimDistributionID CreateDistribution(ORXSimTransaction& transaction, ORXSimGrid const& grid,
                                          ORXSimRangeType const& range) const;
  /// The same with a type of the context's schema, by its index.
  ORXSimDistributionID CreateTypedDistribution(ORXSimTransaction& transaction, ORXSimGrid const& grid,
                                               int typeIndex, ORXSimRangeType const& range) const;

private:
  ORXSimContextID m_context;
};
