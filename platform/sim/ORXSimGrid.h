#pragma once

#include "sim/ORXSimArray.h"
#include "sim/ORXSimIdentifiers.h"

/// The collections that span the dimensions of a distribution, dimension 0 first: 1 to 32 of them, which is
/// checked when a distribution is created. Dimensions are zero-based; Collection does not check `dim`.
class ORXSimGrid {
public:
  ORXSimGrid() = default;
  explicit ORXSimGrid(ORXSimArray<ORXSimCollectionID> const& collections) : m_collections(collections) {}

  int NumDimensions() const noexcept { return m_collections.Size(); }
  ORXSimCollectionID const& Collection(int dim) const noexcept { return m_collections[dim]; }

private:
  ORXSimArray<ORXSimCollectionID> m_collections;
};
