#include "sim/ORXSimCSet.h"

#include "sim/impl/OpenDatabase.h"
#include "sim/impl/RaiseError.h"

using orx::sim::RaiseError;

ORXSimCSet::ORXSimCSet(ORXSimCSetID const& id) : m_id(id) {
  if (id.IsNull())
    RaiseError(ORXSimException::staleIdentifier, "An identifier names nothing: it is the null member set.");
  m_members = orx::sim::FindContext(id.Context()).FindRecord(id).members;
}

int ORXSimCSet::Size() const noexcept { return m_members->Size(); }

void ORXSimCSet::OrderedMembers(int* out) const { m_members->CopyTo(out); }

bool ORXSimCSet::HasOverlap(ORXSimCSet const& other) const {
  bool const isSmaller = Size() <= other.Size();
  ORXSimIndexSet const& few = isSmaller ? *m_members : *other.m_members;
  ORXSimIndexSet const& many = isSmaller ? *other.m_members : *m_members;
  for (int k = 0; k < few.Size(); ++k)
    if (many.Contains(few[k])) return true;
  return false;
}
