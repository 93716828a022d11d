#include "sim/impl/OpenDatabase.h"

#include "sim/ORXSimException.h"
#include "sim/impl/store/CatalogStorage.h"

#include <unordered_map>

namespace orx::sim {

namespace {

/// The open files by their numbers, which are not used again: an identifier of a closed file is known as
/// such. The table is never destroyed, because static objects of the host may own databases.
std::unordered_map<std::uint32_t, OpenDatabase*>& OpenFiles() {
  static auto& files = *new std::unordered_map<std::uint32_t, OpenDatabase*>;
  return files;
}

std::uint32_t NextNumber() {
  static std::uint32_t last = 0;
  return ++last;
}

} // namespace

OpenDatabase::OpenDatabase(std::unique_ptr<store::DatabaseFile> file)
    : m_number(NextNumber()), m_file(std::move(file)) {
  OpenFiles()[m_number] = this;
}

OpenDatabase::~OpenDatabase() { OpenFiles().erase(m_number); }

std::shared_ptr<OpenDatabase> OpenDatabase::Create(std::string const& name, ORXSimDurability durability,
                                                   bool replacesExisting) {
  bool const isScratch = durability == ORXSimDurability::Scratch;
  return std::make_shared<OpenDatabase>(store::DatabaseFile::Create(name, isScratch, replacesExisting));
}

std::shared_ptr<OpenDatabase> OpenDatabase::Open(std::string const& name, bool readOnly) {
  auto database = std::make_shared<OpenDatabase>(store::DatabaseFile::Open(name, readOnly));
  store::LoadCatalog(database->File(), [&](int number, ORXSimNamespaceID space) -> Context& {
    auto const count = static_cast<std::size_t>(number) + 1;
    if (database->m_contexts.size() < count) database->m_contexts.resize(count);
    database->m_contexts.back() = std::make_unique<Context>(*database, number, space);
    return *database->m_contexts.back();
  });
  for (auto const& context : database->m_contexts)
    if (context != nullptr) context->MarkSaved();
  return database;
}

Context& OpenDatabase::AddContext(ORXSimNamespaceID space) {
  RequireWritable("create a context");
  m_contexts.push_back(std::make_unique<Context>(*this, static_cast<int>(m_contexts.size()), space));
  return *m_contexts.back();
}

void OpenDatabase::RequireWritable(char const* what) const {
  if (!m_file->IsReadOnly()) return;
  ORXSimException(ORXSimException::writeFailed,
                  std::string("The file cannot ") + what + ": " + m_file->Path() + " was opened read-only.")
      .Throw(__FILE__, __LINE__);
}

void OpenDatabase::Commit(Context const& committing) {
  if (m_file->IsScratch()) return; // its structure is written when it is closed
  std::vector<Context*> contexts;
  for (auto const& context : m_contexts)
    if (context != nullptr && (context.get() == &committing || !context->HasTransaction()))
      contexts.push_back(context.get());
  Save(contexts);
  store::TryToEmptyTrash(*m_file);
}

void OpenDatabase::CommitForClose() {
  if (m_file->IsReadOnly()) return;
  std::vector<Context*> contexts;
  for (auto const& context : m_contexts) {
    if (context == nullptr) continue;
    if (context->HasTransaction()) context->AbandonTransaction();
    context->DropTemporaries();
    contexts.push_back(context.get());
  }
  Save(contexts);
}

void OpenDatabase::Save(std::vector<Context*> const& contexts) {
  store::CatalogWriter writer(*m_file);
  try {
    for (Context* const context : contexts)
      writer.Save(*context);
    if (m_file->IsScratch()) {
      m_file->CommitForClose();
    } else {
      m_file->Commit();
    }
  } catch (...) {
    writer.Revert();
    throw;
  }
  for (Context* const context : contexts)
    context->MarkSaved();
}

Context* LookUpContext(ORXSimContextID const& id) noexcept {
  auto const file = OpenFiles().find(id.file);
  if (file == OpenFiles().end()) return nullptr;
  auto const& contexts = file->second->Contexts();
  return id.context < contexts.size() ? contexts[id.context].get() : nullptr;
}

Context& FindContext(ORXSimContextID const& id) {
  if (Context* const context = LookUpContext(id)) return *context;
  std::string const reason = id == ORXSimContextID()                          ? "it is the null context"
                             : OpenFiles().find(id.file) == OpenFiles().end() ? "its file is closed"
                                                                              : "there is no such context";
  ORXSimException(ORXSimException::staleIdentifier, "An identifier names nothing: " + reason + ".")
      .Throw(__FILE__, __LINE__);
}

std::shared_ptr<DistributionRecord> const& FindDistribution(ORXSimDistributionID const& id) {
  if (id.IsNull())
    ORXSimException(ORXSimException::staleIdentifier,
                    "An identifier names nothing: it is the null distribution.")
        .Throw(__FILE__, __LINE__);
  return FindContext(id.context).DistributionAt(id.handle);
}

} // namespace orx::sim
