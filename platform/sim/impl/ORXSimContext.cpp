#include "sim/ORXSimContext.h"

#include "sim/impl/OpenDatabase.h"
#include "sim/impl/RaiseError.h"
#include "sim/impl/store/BoxCopy.h"

#include <cstring>

using orx::sim::RaiseError;

ORXSimTypeID ORXSimTypeSchemaSnapshot::TypeID(int index) const {
  Name(index);
  return ORXSimTypeID(index);
}

atr_String const& ORXSimTypeSchemaSnapshot::Name(int index) const {
  if (index < 0 || index >= Size())
    RaiseError(ORXSimException::invalidArgument, "There is no type with index " + std::to_string(index) +
                                                     ": the schema has " + std::to_string(Size()) + ".");
  return m_names[index];
}

ORXSimNamespaceID ORXSimContext::NamespaceID() const { return orx::sim::FindContext(m_id).Namespace(); }

ORXSimCollectionID ORXSimContext::CreateCollection(int size, ORXSimTypeID type) const {
  orx::sim::Context& context = orx::sim::FindContext(m_id);
  context.Database().RequireWritable("create a collection");
  if (size < 0)
    RaiseError(ORXSimException::invalidArgument,
               "A collection cannot have " + std::to_string(size) + " members.");
  return context.AddCollection(size, type);
}

namespace {

[[noreturn]] void RefuseGrid(std::string const& text) {
  RaiseError(ORXSimException::invalidArgument, "A distribution cannot be created: " + text + ".");
}

std::vector<ORXSimIDMinor> CheckedGrid(orx::sim::Context const& context, ORXSimGrid const& grid) {
  if (grid.NumDimensions() < 1 || grid.NumDimensions() > orx::store::maxRank)
    RefuseGrid("its grid has " + std::to_string(grid.NumDimensions()) + " dimensions, expected 1 to " +
               std::to_string(orx::store::maxRank));
  std::vector<ORXSimIDMinor> minors;
  for (int dim = 0; dim < grid.NumDimensions(); ++dim) {
    ORXSimCollectionID const& collection = grid.Collection(dim);
    if (!(collection.Context() == context.ID()))
      RefuseGrid("the collection of dimension " + std::to_string(dim) + " is null or of another context");
    context.FindRecord(collection);
    for (int other = 0; other < dim; ++other)
      if (grid.Collection(other).Minor() == collection.Minor())
        RefuseGrid("dimensions " + std::to_string(other) + " and " + std::to_string(dim) +
                   " have the same collection; a colour variant is needed");
    minors.push_back(collection.Minor());
  }
  return minors;
}

ORXSimDistributionID AddDistribution(ORXSimContextID const& id, ORXSimGrid const& grid,
                                     ORXSimRangeType const& range, ORXSimTypeID type, bool isTemporary) {
  orx::sim::Context& context = orx::sim::FindContext(id);
  context.Database().RequireWritable("create a distribution");
  if (range.CellBytes() == 0) RefuseGrid("its cells have no type");
  if (type.type < -1 || type.type >= static_cast<int>(context.Types().size()))
    RefuseGrid("its context has no type " + std::to_string(type.type));
  return context.AddDistribution(CheckedGrid(context, grid), range, type, isTemporary);
}

} // namespace

ORXSimDistributionID ORXSimContext::CreateDistribution(ORXSimGrid const& grid, ORXSimRangeType const& range,
                                                       ORXSimTypeID type) const {
  return AddDistribution(m_id, grid, range, type, false);
}

ORXSimDistributionID ORXSimContext::CreateTempDistribution(ORXSimGrid const& grid,
                                                           ORXSimRangeType const& range,
                                                           ORXSimTypeID type) const {
  return AddDistribution(m_id, grid, range, type, true);
}

void ORXSimContext::DropTempDistribution(ORXSimDistributionID const& id) const {
  orx::sim::FindContext(m_id).DropDistribution(id);
}

int ORXSimContext::DefineType(char const* name) const {
  orx::sim::Context& context = orx::sim::FindContext(m_id);
  context.Database().RequireWritable("define a type");
  std::size_t const length = std::strlen(name);
  if (length < 1 || length > 255)
    RaiseError(ORXSimException::invalidArgument,
               "A type name has " + std::to_string(length) + " bytes, expected 1 to 255.");
  return context.AddType(name);
}

ORXSimTypeSchemaSnapshot ORXSimContext::Schema() const {
  ORXSimArray<atr_String> names;
  for (atr_String const& name : orx::sim::FindContext(m_id).Types())
    names.Append(name);
  return ORXSimTypeSchemaSnapshot(names);
}

ORXSimArray<ORXSimCollectionID> ORXSimContext::Collections() const {
  orx::sim::Context& context = orx::sim::FindContext(m_id);
  ORXSimArray<ORXSimCollectionID> ids;
  for (auto const& [number, record] : context.AllCollections())
    ids.Append(context.CollectionID(number, 0));
  return ids;
}

ORXSimArray<ORXSimDistributionID> ORXSimContext::Distributions() const {
  ORXSimArray<ORXSimDistributionID> ids;
  for (auto const& [handle, record] : orx::sim::FindContext(m_id).AllDistributions())
    if (!record->isTemporary) ids.Append(record->id);
  return ids;
}
