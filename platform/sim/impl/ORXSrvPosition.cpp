#include "sim/ORXSrvPosition.h"

#include "sim/ORXSimException.h"

namespace {
void RequireOpenOn(ORXSimTransaction const& transaction, ORXSimContextID const& context) {
  if (transaction.IsOpen() && transaction.Context() == context) return;
  ORXSimException(
      ORXSimException::wrongState,
      "A distribution cannot be created at a position: the transaction is over, or on another context.")
      .Throw(__FILE__, __LINE__);
}
} // namespace

ORXSimDistributionID ORXSrvPosition::CreateDistribution(ORXSimTransaction& transaction,
                                                        ORXSimGrid const& grid,
                                                        ORXSimRangeType const& range) const {
  RequireOpenOn(transaction, m_context);
  return Context().CreateDistribution(grid, range, ORXSimTypeID());
}

ORXSimDistributionID ORXSrvPosition::CreateTypedDistribution(ORXSimTransaction& transaction,
                                                             ORXSimGrid const& grid, int typeIndex,
                                                             ORXSimRangeType const& range) const {
  RequireOpenOn(transaction, m_context);
  return Context().CreateDistribution(grid, range, Context().Schema().TypeID(typeIndex));
}
