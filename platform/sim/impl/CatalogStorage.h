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

/// Writes the unsaved records of contexts into the tables of a file, and moves new drawers to their paths.
/// Nothing is durable before the file's commit; when a call or the commit fails, the caller calls
/// RevertChanges.
class CatalogWriter {
public:
  explicit CatalogWriter(DatabaseFile& file) : m_file(file) {}

  /// Writes the unsaved records of a context.
  void SaveRecords(sim::Context& context);
  /// For a context whose transaction is open while another context is committed: marks the saved drawers that
  /// the transaction has extended. After a crash the next opening cuts them to their saved sizes.
  void NoteExtensions(sim::Context& context);
  /// In a file of format version 1: moves the groups of collections and sets to the trash, and removes the
  /// attributes of distributions.
  void RemoveFormerFormat(sim::Context const& context);
  void WriteVersion(int version, int former);
  /// Takes all changes back: the file has the state before the first call.
  void RevertChanges() noexcept;

private:
  /// A table of m_context, and new rows that WriteTable will append to it together.
  struct TableChanges {
    std::optional<RecordTable> table;
    std::vector<int> rows;
  };

  TableChanges& ChangesOf(TableLayout const& layout);
  std::int64_t AddRow(TableLayout const& layout, std::vector<int> row, std::span<int const> list = {});
  void OverwriteRow(TableLayout const& layout, std::int64_t index, std::vector<int> row,
                    std::span<int const> list);
  void OverwriteRows(TableLayout const& layout, std::int64_t first, std::span<int const> rows);
  int AddNumbers(std::span<int const> numbers);
  void WriteTables();
  void WriteTable(TableLayout const& layout, TableChanges& changes);
  void EnlargeTable(TableLayout const& layout, TableChanges& changes, std::int64_t rows);

  void SaveContext();
  void SaveTypes();
  void SaveCollection(int number);
  /// Saves a set after the unsaved sets that it continues.
  void SaveSet(int number);
  void AddSetRow(int number);
  void SaveDistribution(std::uint32_t handle);
  void SaveDistributionRow(sim::DistributionRecord& record, int drawerCode);
  void SaveDrawer(sim::DistributionRecord& distribution);

  std::string TablePath(TableLayout const& layout) const { return m_context->Path() + "/" + layout.name; }
  void RemoveOnRevert(std::string const& path);
  void MoveObject(std::string const& from, std::string const& to);
  /// Moves an object to the trash: its path is then free for its successor.
  void ReplaceObject(std::string const& path);
  void RemoveAttributes(std::string const& path, std::span<char const* const> names);

  DatabaseFile& m_file;
  sim::Context* m_context = nullptr;                 ///< the context that is being saved
  std::map<std::string_view, TableChanges> m_tables; ///< tables of m_context by name
  std::set<int> m_writtenSets;                       ///< sets of m_context whose rows were added
  std::vector<std::function<void()>> m_reversals;    ///< RevertChanges runs the last step first
};

/// The paths of links in the group `path`, by the number in their names: with the prefix "set_", element 12
/// is the path of "set_12". Raises DamageFound for a name that has the prefix and no number behind it.
std::map<int, std::string> NumberedLinks(DatabaseFile const& file, std::string const& path,
                                         std::string const& prefix);

/// Sets the form of a sparse or symmetric drawer from its tables::DrawerCode; leaves it for a dense drawer.
void SetSerialization(ORXSimSerializationType& serialization, int drawerCode);

/// Reads the contexts of a file; `create` makes an empty context for each.
void LoadCatalog(DatabaseFile& file,
                 std::function<sim::Context&(int number, ORXSimNamespaceID space)> const& create);

/// Reads the objects of a context from a file of format version 1, in which each has a group of its own.
void LoadFormerContext(DatabaseFile& file, sim::Context& context);

/// Opens the saved drawer of a distribution and sets `dense` or `sparse` of its record.
void OpenDrawer(DatabaseFile& file, sim::DistributionRecord const& record);

} // namespace orx::store
