#include "sim/ORXSimDistribution.h"

#include "sim/impl/OpenDatabase.h"
#include "sim/impl/RaiseError.h"

using orx::sim::RaiseError;

std::int64_t ORXSimDrawerDescription::DataSizeItems(int buffer) const noexcept {
  if (!m_serialization.IsSparse()) {
    if (buffer != 0) return 0;
    std::int64_t cells = 1;
    for (int const size : m_sizes)
      cells *= size;
    return cells;
  }
  std::int64_t const rows = m_sizes[0];
  switch (buffer) {
  case 0:
  case 1:
    return m_entries;
  case 2:
    return rows + 1;
  case 3:
    return m_hasDiagonal ? rows : 0;
  default:
    return 0;
  }
}

ORXSimParticipation::~ORXSimParticipation() = default;

ORXSimDistribution::ORXSimDistribution() noexcept : m_participation(nullptr) {}

ORXSimDistribution::ORXSimDistribution(ORXSimDistributionID const& id)
    : m_participation(orx::sim::FindDistribution(id)) {}

namespace {
orx::sim::DistributionRecord& RequireRecord(orx::sim::DistributionRecord* record) {
  return orx::sim::RequireRecord(record, "handle");
}
} // namespace

ORXSimDistributionID ORXSimDistribution::ID() const noexcept {
  orx::sim::DistributionRecord const* const record = m_participation.Record();
  return record != nullptr ? record->id : ORXSimDistributionID();
}

int ORXSimDistribution::NumDimensions() const noexcept {
  orx::sim::DistributionRecord const* const record = m_participation.Record();
  return record != nullptr ? record->Rank() : 0;
}

ORXSimRangeType ORXSimDistribution::RangeType() const {
  return RequireRecord(m_participation.Record()).range;
}

ORXSimTypeID ORXSimDistribution::Type() const { return RequireRecord(m_participation.Record()).type; }

ORXSimCollectionID ORXSimDistribution::Collection(int dim) const {
  orx::sim::DistributionRecord const& record = RequireRecord(m_participation.Record());
  if (dim < 0 || dim >= record.Rank())
    RaiseError(ORXSimException::invalidArgument, "There is no dimension " + std::to_string(dim) + " in " +
                                                     record.Name() + ", which has " +
                                                     std::to_string(record.Rank()) + ".");
  return record.Collection(dim);
}

void ORXSimDistribution::QueryDrawers(ORXSimArray<ORXSimPersistentDrawerDesc>& out) const {
  orx::sim::DistributionRecord const& record = RequireRecord(m_participation.Record());
  out.Clear();
  if (record.drawer != nullptr) out.Append(ORXSimPersistentDrawerDesc(record.Describe()));
}
