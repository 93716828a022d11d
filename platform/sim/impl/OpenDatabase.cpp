#include "sim/impl/OpenDatabase.h"

#include "sim/impl/CatalogStorage.h"
#include "sim/impl/RaiseError.h"

#include <algorithm>
#include <unordered_map>

namespace orx::sim {

namespace {

/// The open files by their numbers. Numbers are not used again: an identifier of a closed file never names
/// another file. The table is never destroyed, because static objects of the host may own databases.
std::unordered_map<std::uint32_t, OpenDatabase*>& OpenFiles() {
  static auto& files = *new std::unordered_map<std::uint32_t, OpenDatabase*>;
  return files;
}

std::uint32_t NextNumber() {
  static std::uint32_t last = 0;
  return ++last;
}

} // namespace

OpenDatabase::OpenDatabase() : m_number(NextNumber()) { OpenFiles()[m_number] = this; }

OpenDatabase::~OpenDatabase() { OpenFiles().erase(m_number); }

std::shared_ptr<OpenDatabase> OpenDatabase::Create(std::string const& name, ORXSimDurability durability,
                                                   bool replacesExisting) {
  bool const isScratch = durability == ORXSimDurability::Scratch;
  auto database = std::make_shared<OpenDatabase>(); // if memory runs out here, no file is replaced
  database->m_file = store::DatabaseFile::Create(name, isScratch, replacesExisting);
  return database;
}

std::shared_ptr<OpenDatabase> OpenDatabase::Open(std::string const& name, bool readOnly) {
  auto database = std::make_shared<OpenDatabase>();
  database->m_file = store::DatabaseFile::Open(name, readOnly);
  store::LoadCatalog(database->File(), [&](int number, ORXSimNamespaceID space) -> Context& {
    auto& context = database->m_contexts[number];
    context = std::make_unique<Context>(*database, number, space);
    context->MarkLoaded();
    return *context;
  });
  return database;
}

Context& OpenDatabase::AddContext(ORXSimNamespaceID space) {
  RequireWritable("create a context");
  UpgradeFormat();
  std::int64_t const number = m_contexts.empty() ? 0 : std::int64_t{m_contexts.rbegin()->first} + 1;
  if (number > largestNumber) RefuseAboveLimit(largestNumber, "A database has no more contexts");
  auto context = std::make_unique<Context>(*this, static_cast<int>(number), space);
  return *(m_contexts[static_cast<int>(number)] = std::move(context));
}

void OpenDatabase::RequireWritable(char const* what) const {
  if (!m_file->IsReadOnly()) return;
  RaiseError(ORXSimException::writeFailed,
             std::string("The file cannot ") + what + ": " + m_file->Path() + " was opened read-only.");
}

void OpenDatabase::Commit(Context const& committing) {
  if (m_file->IsScratch()) return; // CommitForClose writes the metadata
  std::vector<Context*> contexts;
  for (auto const& [number, context] : m_contexts)
    if (context.get() == &committing || !context->HasTransaction()) contexts.push_back(context.get());
  SaveContexts(contexts);
}

void OpenDatabase::CommitForClose() {
  if (m_file->IsReadOnly()) return;
  std::vector<Context*> contexts;
  for (auto const& [number, context] : m_contexts) {
    if (context->HasTransaction()) context->AbandonTransaction();
    context->DropTemporaries();
    contexts.push_back(context.get());
  }
  SaveContexts(contexts);
}

void OpenDatabase::UpgradeFormat() {
  if (m_file->IsReadOnly() || m_file->Version() == store::formatVersion) return;
  int const former = m_file->Version();
  store::CatalogWriter writer(*m_file);
  try {
    for (auto const& [number, context] : m_contexts) {
      context->MarkUnsaved();
      writer.RemoveFormerFormat(*context);
      writer.SaveRecords(*context);
    }
    writer.WriteVersion(store::formatVersion, former);
    m_file->Commit();
  } catch (...) {
    writer.RevertChanges();
    for (auto const& [number, context] : m_contexts)
      context->MarkNothingUnsaved();
    throw;
  }
  for (auto const& [number, context] : m_contexts)
    context->MarkSaved();
}

void OpenDatabase::SaveContexts(std::vector<Context*> const& contexts) {
  store::CatalogWriter writer(*m_file);
  try {
    for (Context* const context : contexts)
      writer.SaveRecords(*context);
    for (auto const& [number, context] : m_contexts)
      if (std::ranges::find(contexts, context.get()) == contexts.end()) writer.NoteExtensions(*context);
    if (m_file->IsScratch()) {
      m_file->CommitForClose();
    } else {
      m_file->Commit();
    }
  } catch (...) {
    writer.RevertChanges();
    throw;
  }
  for (Context* const context : contexts)
    context->MarkSaved();
}

Context* LookUpContext(ORXSimContextID const& id) noexcept {
  auto const file = OpenFiles().find(id.file);
  if (file == OpenFiles().end()) return nullptr;
  auto const& contexts = file->second->Contexts();
  if (id.context > static_cast<std::uint32_t>(largestNumber)) return nullptr;
  auto const context = contexts.find(static_cast<int>(id.context));
  return context != contexts.end() ? context->second.get() : nullptr;
}

Context& FindContext(ORXSimContextID const& id) {
  if (Context* const context = LookUpContext(id)) return *context;
  std::string const reason = id == ORXSimContextID()                          ? "it is the null context"
                             : OpenFiles().find(id.file) == OpenFiles().end() ? "its file is closed"
                                                                              : "there is no such context";
  RaiseError(ORXSimException::staleIdentifier, "An identifier names nothing: " + reason + ".");
}

std::shared_ptr<DistributionRecord> const& FindDistribution(ORXSimDistributionID const& id) {
  if (id.IsNull())
    RaiseError(ORXSimException::staleIdentifier, "An identifier names nothing: it is the null distribution.");
  return FindContext(id.context).DistributionAt(id.handle);
}

DistributionRecord& RequireRecord(DistributionRecord* record, char const* holder) {
  if (record == nullptr)
    RaiseError(ORXSimException::wrongState, std::string("The ") + holder + " is on no distribution.");
  record->InContext();
  return *record;
}

} // namespace orx::sim
