#pragma once

#include "sim/ORXSimDatabase.h"
#include "sim/impl/Context.h"
#include "sim/impl/store/DatabaseFile.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orx::sim {

/// An open file and its contexts. FindContext finds it by its number as long as it exists.
class OpenDatabase {
public:
  static std::shared_ptr<OpenDatabase> Create(std::string const& name, ORXSimDurability durability,
                                              bool replacesExisting);
  static std::shared_ptr<OpenDatabase> Open(std::string const& name, bool readOnly);

  OpenDatabase();
  OpenDatabase(OpenDatabase const&) = delete;
  OpenDatabase& operator=(OpenDatabase const&) = delete;
  /// Closes the file; changes that were not committed are dropped.
  ~OpenDatabase();

  std::uint32_t Number() const noexcept { return m_number; }
  store::DatabaseFile& File() const noexcept { return *m_file; }

  Context& AddContext(ORXSimNamespaceID space);
  using ContextsByNumber = std::map<int, std::unique_ptr<Context>>;
  ContextsByNumber const& Contexts() const noexcept { return m_contexts; }

  /// Raises writeFailed when the file is read-only; `what` names the refused work: "create a collection".
  void RequireWritable(char const* what) const;
  /// Rewrites the catalogue of a file of a former format, in a commit of its own. Called before a change.
  void UpgradeFormat();
  /// Saves `committing` and the contexts without an open transaction; writes nothing to a scratch file. On an
  /// error the file holds the former state and the records are as before.
  void Commit(Context const& committing);
  /// Abandons open transactions, drops the cells of temporary distributions and saves everything else. On an
  /// error the file stays open.
  void CommitForClose();

private:
  void SaveContexts(std::vector<Context*> const& contexts);

  std::uint32_t m_number;
  std::unique_ptr<store::DatabaseFile> m_file;
  ContextsByNumber m_contexts;
};

/// The context that an identifier names; raises staleIdentifier when there is none or its file is closed.
Context& FindContext(ORXSimContextID const& id);
/// The context that an identifier names; null when there is none or its file is closed.
Context* LookUpContext(ORXSimContextID const& id) noexcept;
/// The record that an identifier names; raises staleIdentifier when there is none.
std::shared_ptr<DistributionRecord> const& FindDistribution(ORXSimDistributionID const& id);
/// Returns the record of a handle or transfer, which `holder` names; raises wrongState when it has none, and
/// staleIdentifier when the record is in no context any more.
DistributionRecord& RequireRecord(DistributionRecord* record, char const* holder);

} // namespace orx::sim
