#include "sim/ORXSimCollection.h"

#include "sim/impl/OpenDatabase.h"
#include "sim/impl/RaiseError.h"

#include <limits>
#include <span>

using orx::sim::RaiseError;

namespace {

[[noreturn]] void RefuseSet(std::string const& text) {
  RaiseError(ORXSimException::invalidArgument, "A member set cannot be created: " + text + ".");
}

/// Finds the context for a new set. Raises writeFailed on a read-only file, unless the set is temporary and
/// the collection has all its labels.
orx::sim::Context& ContextFor(ORXSimCollectionID const& id, ORXSimIndexSet const& members, bool isTemporary) {
  orx::sim::Context& context = orx::sim::FindContext(id.Context());
  if (!isTemporary) {
    context.Database().RequireWritable("create a member set");
  } else if (context.Database().File().IsReadOnly() && !context.FindRecord(id).members.ContainsAll(members)) {
    context.Database().RequireWritable("add members to a collection");
  }
  return context;
}

ORXSimCSetID AddListedSet(ORXSimCollectionID const& id, int const* labels, int count, bool isTemporary) {
  if (count < 0) RefuseSet("it would have " + std::to_string(count) + " members");
  std::span<int const> const list(labels, static_cast<std::size_t>(count));
  for (int k = 0; k < count; ++k)
    if (labels[k] < 0)
      RefuseSet("label " + std::to_string(k) + " is " + std::to_string(labels[k]) + ", expected at least 0");
  ORXSimIndexSet members = ORXSimIndexSet::Listed(list);
  orx::sim::Context& context = ContextFor(id, members, isTemporary);
  return context.AddSet(id, std::move(members), isTemporary);
}

} // namespace

int ORXSimCollection::Size() const {
  return orx::sim::FindContext(m_id.Context()).FindRecord(m_id).members.Size();
}

ORXSimCSetID ORXSimCollection::CreateOrderedCSet(int const* labels, int count) const {
  return AddListedSet(m_id, labels, count, false);
}

ORXSimCSetID ORXSimCollection::CreateTempOrderedCSet(int const* labels, int count) const {
  return AddListedSet(m_id, labels, count, true);
}

void ORXSimCollection::DropTempCSet(ORXSimCSetID const& id) const {
  orx::sim::FindContext(m_id.Context()).DropSet(id);
}

ORXSimCSetID ORXSimCollection::CreateCSetStrided(int start, int count, int stride, int blockLength) const {
  if (count < 0) RefuseSet("it would have " + std::to_string(count) + " members");
  if (blockLength != 1)
    RefuseSet("blocks of " + std::to_string(blockLength) + " members are not supported, expected 1");
  std::int64_t const last = start + std::int64_t{stride} * (count > 0 ? count - 1 : 0);
  if (count > 0 && (start < 0 || last < 0 || last > std::numeric_limits<int>::max()))
    RefuseSet("its labels go from " + std::to_string(start) + " to " + std::to_string(last) +
              ", expected 0 to 2147483647");
  ORXSimIndexSet members = ORXSimIndexSet::Strided(start, count, stride);
  orx::sim::Context& context = ContextFor(m_id, members, false);
  return context.AddSet(m_id, std::move(members), false);
}

ORXSimCSetID ORXSimCollection::BiggestCSetID() const {
  orx::sim::Context& context = orx::sim::FindContext(m_id.Context());
  // A read-only file has this set already, or gets a temporary set.
  bool const isTemporary = context.Database().File().IsReadOnly();
  return context.AddSet(m_id, context.FindRecord(m_id).members.AllLabels(), isTemporary);
}

ORXSimCollectionID ORXSimCollection::CreateColorVariant(int color) const {
  orx::sim::Context& context = orx::sim::FindContext(m_id.Context());
  context.Database().RequireWritable("create a colour variant");
  if (color < 0)
    RaiseError(ORXSimException::invalidArgument,
               "A colour variant cannot have the colour " + std::to_string(color) + ", expected at least 0.");
  context.AddColor(m_id, color);
  return m_id.ColorVariant(color);
}
