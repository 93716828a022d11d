#include "tools/commands/Database.h"

#include "tools/formats/DatabaseMatrix.h"
#include "tools/terminal/Text.h"

#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimDistribution.h"

#include <filesystem>

namespace orx::tool {
namespace {

std::string Joined(ORXSimArray<int> const& numbers) {
  std::string text;
  for (int const number : numbers)
    text += (text.empty() ? "" : " x ") + std::to_string(number);
  return text;
}

/// In two dimensions the database has columns first.
std::string ShapeText(ORXSimPersistentDrawerDesc const& drawer) {
  if (drawer.NumDimensions() == 2 && !drawer.Serialization().IsSparse())
    return Format("%d rows x %d columns", drawer.DimensionSize(1), drawer.DimensionSize(0));
  if (drawer.NumDimensions() == 2)
    return Format("%d rows x %d columns", drawer.DimensionSize(0), drawer.DimensionSize(1));
  ORXSimArray<int> sizes;
  for (int dim = 0; dim < drawer.NumDimensions(); ++dim)
    sizes.Append(drawer.DimensionSize(dim));
  return Joined(sizes);
}

std::string ChunkText(ORXSimArray<int> const& chunks) {
  if (chunks.IsEmpty()) return "stored whole";
  if (chunks.Size() == 2) return Format("chunks of %d x %d", chunks[1], chunks[0]);
  return "chunks of " + Joined(chunks);
}

std::string SparseText(ORXSimPersistentDrawerDesc const& drawer) {
  std::int64_t bytes = 0;
  int const itemBytes[] = {8, 4, 4, 8};
  for (int buffer = 0; buffer < 4; ++buffer)
    bytes += drawer.DataSizeItems(buffer) * itemBytes[buffer];
  bool const isSymmetric = drawer.Serialization().Kind() == ORXSimSerializationType::Layout::SparseSym;
  return Format("sparse %s, %s, %s, %s", isSymmetric ? "symmetric" : "general", ShapeText(drawer).c_str(),
                Counted(drawer.DataSizeItems(0), "entry", "entries").c_str(),
                Counted(bytes, "byte", "bytes").c_str());
}

std::string DrawerText(ORXSimDistribution const& distribution) {
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  distribution.QueryDrawers(drawers);
  if (drawers.IsEmpty())
    return Counted(distribution.NumDimensions(), "dimension", "dimensions") + ", no values";
  ORXSimPersistentDrawerDesc const& drawer = drawers[0];
  if (drawer.Serialization().IsSparse()) return SparseText(drawer);
  if (drawer.Serialization().IsDenseSym())
    return Format("symmetric doubles, %s, %s", ShapeText(drawer).c_str(),
                  ChunkText(drawer.ChunkSizes()).c_str());
  ORXSimRangeType const range = distribution.RangeType();
  return Format("dense %s, %s, %s, %s", range.Key() == ORXSimTypeKey::Double ? "doubles" : "integers",
                ShapeText(drawer).c_str(), ChunkText(drawer.ChunkSizes()).c_str(),
                Counted(drawer.DataSizeItems(0) * range.CellBytes(), "byte", "bytes").c_str());
}

std::string DistributionLine(ORXSimTypeSchemaSnapshot const& schema, ORXSimDistributionID const& id) {
  ORXSimDistribution const distribution(id);
  int const type = distribution.Type().type;
  std::string const typeText = type >= 0 ? ", type " + std::string(schema.Name(type).AsText()) : "";
  return Format("  distribution %-6u %s%s\n", id.handle - 1, DrawerText(distribution).c_str(),
                typeText.c_str());
}

std::string ContextText(ORXSimContextID const& id) {
  ORXSimContext const context(id);
  ORXSimArray<ORXSimDistributionID> const distributions = context.Distributions();
  std::string text = Format("context %-13u %s, %s\n", id.context,
                            Counted(context.Collections().Size(), "collection", "collections").c_str(),
                            Counted(distributions.Size(), "distribution", "distributions").c_str());
  ORXSimTypeSchemaSnapshot const schema = context.Schema();
  for (ORXSimDistributionID const& distribution : distributions)
    text += DistributionLine(schema, distribution);
  return text;
}

} // namespace

std::string DatabaseText(std::string const& path) {
  ORXSimDatabase database;
  OpenToRead(database, path);
  std::string text =
      Format("%-21s %s\n%-21s %s\n", "file", path.c_str(), "size",
             Counted(static_cast<std::int64_t>(std::filesystem::file_size(path)), "byte", "bytes").c_str());
  for (ORXSimContextID const& context : database.Contexts())
    text += ContextText(context);
  return text;
}

} // namespace orx::tool
