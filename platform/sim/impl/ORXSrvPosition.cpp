#include "sim/ORXSrvPosition.h"

#include "sim/impl/RaiseError.h"

using orx::sim::RaiseError;

namespace {
void RequireOpenOn(ORXSimTransaction const& transaction, ORXSimContextID const& context) {
  if (transaction.IsOpen() && transaction.Context() == context) return;
  RaiseError(
      ORXSimException::wrongState,
      "A distribution cannot be created at a position: the transaction is over, or on another context.");
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
