#pragma once

#include "sim/impl/CatalogTables.h"
#include "sim/impl/Context.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orx::store {

class DatabaseFile;

/// Writes what contexts have unsaved into the tables of a file, and puts drawers in their places. Nothing is
/// durable before the file's commit; when that fails, Revert takes everything back.
class CatalogWriter {
public:
  explicit CatalogWriter(DatabaseFile& file) : m_file(file) {}

  void Save(sim::Context& context);
  /// For a context whose transaction is open while others are committed: says which of its saved drawers are
  /// longer than their sets, so that the next opening after a crash cuts them.
  void NoteExtensions(sim::Context& context);
  /// Makes way for the tables in a file of a former format.
  void RemoveFormerFormat(sim::Context const& context);
  void WriteVersion(int version, int former);
  /// Puts the file back into the state before the first call.
  void Revert() noexcept;

private:
  /// A table of the context that is being saved, and rows that wait to be written together.
  struct Growing {
    std::optional<RecordTable> table;
    std::vector<int> rows;
  };

  Growing& Table(TableForm const& form);
  std::int64_t AddRow(TableForm const& form, std::vector<int> row, std::span<int const> list = {});
  void OverwriteRow(TableForm const& form, std::int64_t index, std::vector<int> row,
                    std::span<int const> list);
  void Overwrite(TableForm const& form, std::int64_t first, std::span<int const> rows);
  int AddNumbers(std::span<int const> numbers);
  void WriteTables();
  void WriteTable(TableForm const& form, Growing& growing);
  void Enlarge(TableForm const& form, Growing& growing, std::int64_t rows);

  void SaveContext();
  void SaveTypes();
  void SaveCollection(int number);
  /// After those that it continues.
  void SaveSet(int number);
  void AddSetRow(int number);
  void SaveDistribution(std::uint32_t handle);
  void SaveDistributionRow(sim::DistributionRecord& record, int drawerCode);
  void SaveDrawer(sim::DistributionRecord& distribution);

  std::string TablePath(TableForm const& form) const { return m_context->Path() + "/" + form.name; }
  void RemoveOnRevert(std::string const& path);
  void Move(std::string const& from, std::string const& to);
  /// Makes room for an object's successor.
  void ReplaceObject(std::string const& path);
  void RemoveAttributes(std::string const& path, std::span<char const* const> names);

  DatabaseFile& m_file;
  sim::Context* m_context = nullptr;              ///< that is being saved
  std::map<std::string_view, Growing> m_tables;   ///< its tables by their names
  std::set<int> m_writtenSets;                    ///< of it
  std::vector<std::function<void()>> m_reversals; ///< to be run from the back
};

/// The numbers behind a prefix among the names of a group: "set_12" gives 12, with its path.
std::map<int, std::string> NumberedLinks(std::int64_t file, std::string const& path,
                                         std::string const& prefix);

/// Reads the contexts of a file; `create` makes an empty one.
void LoadCatalog(DatabaseFile& file,
                 std::function<sim::Context&(int number, ORXSimNamespaceID space)> const& create);

/// The same for the objects of a context in a file of format version 1, where each has a group of its own.
void LoadFormerContext(DatabaseFile& file, sim::Context& context);

/// Opens the saved drawer of a distribution.
void OpenDrawer(DatabaseFile& file, sim::DistributionRecord const& record);

} // namespace orx::store
