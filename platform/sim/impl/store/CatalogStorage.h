#pragma once

#include "sim/impl/Context.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orx::store {

class DatabaseFile;

/// Writes what contexts have unsaved into the groups of a file, as docs/database-format.md describes. Nothing
/// is durable before the file's commit; when that fails, Revert takes everything back.
class CatalogWriter {
public:
  explicit CatalogWriter(DatabaseFile& file) : m_file(file) {}

  void Save(sim::Context& context);
  /// Puts the groups back into the state before the first Save.
  void Revert() noexcept;

private:
  void SaveContext(sim::Context& context);
  void SaveTypes(sim::Context& context);
  void SaveCollection(sim::Context& context, int number);
  void SaveSet(sim::Context& context, int number);
  void SaveDistribution(sim::Context& context, int number);
  void SaveDrawer(sim::DistributionRecord& distribution, std::string const& path);
  void RemoveOnRevert(std::string const& path);
  /// Makes room for an object's successor.
  void ReplaceObject(std::string const& path);
  /// Writes an attribute of the object at a path; no values: there may be none.
  void ReplaceAttribute(std::int64_t object, std::string const& path, char const* name,
                        std::vector<int> const& values, bool isScalar);

  DatabaseFile& m_file;
  std::vector<std::function<void()>> m_reversals; ///< to be run from the back
};

/// Fills `contexts` with the contexts of a file; `create` makes an empty one.
void LoadCatalog(DatabaseFile& file,
                 std::function<sim::Context&(int number, ORXSimNamespaceID space)> const& create);

} // namespace orx::store
