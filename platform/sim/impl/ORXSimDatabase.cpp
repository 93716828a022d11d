#include "sim/ORXSimDatabase.h"

#include "sim/impl/OpenDatabase.h"
#include "sim/impl/RaiseError.h"

using orx::sim::RaiseError;

ORXSimDatabase::~ORXSimDatabase() = default;

orx::sim::OpenDatabase& ORXSimDatabase::RequireOpen() const {
  if (m_open == nullptr) RaiseError(ORXSimException::wrongState, "The database is not open.");
  return *m_open;
}

ORXSimFileID ORXSimDatabase::Attach(std::shared_ptr<orx::sim::OpenDatabase> database) {
  m_open = std::move(database);
  return {.file = m_open->Number()};
}

namespace {
void RequireUnopened(bool isOpen, ORXUnicodeString const& name) {
  if (!isOpen) return;
  RaiseError(ORXSimException::wrongState, std::string("Opening ") + name.AsUtf8() +
                                              " is not possible: the database has a file open already.");
}
} // namespace

ORXSimFileID ORXSimDatabase::CreateFile(ORXUnicodeString const& name, int flags, int n) {
  RequireUnopened(IsOpen(), name);
  if ((flags & ~replaceExisting) != 0 || n != -1)
    RaiseError(ORXSimException::invalidArgument,
               std::string("Creating ") + name.AsUtf8() + " is not possible: flags " + std::to_string(flags) +
                   " and n " + std::to_string(n) + ", expected 0 or 1, and -1.");
  return Attach(orx::sim::OpenDatabase::Create(name.AsUtf8(), m_durability, (flags & replaceExisting) != 0));
}

ORXSimFileID ORXSimDatabase::OpenFile(ORXUnicodeString const& name, bool readOnly) {
  RequireUnopened(IsOpen(), name);
  return Attach(orx::sim::OpenDatabase::Open(name.AsUtf8(), readOnly));
}

void ORXSimDatabase::Close() {
  if (m_open == nullptr) return;
  m_open->CommitForClose();
  m_open.reset();
}

void ORXSimDatabase::Discard() noexcept {
  if (m_open == nullptr) return;
  m_open->File().Unlink(); // under the lock: afterwards the name may be another process's
  m_open.reset();
}

void ORXSimDatabase::BackUp(ORXUnicodeString const& name, int flags) const {
  orx::store::DatabaseFile& file = RequireOpen().File();
  bool const isPossible = !file.IsScratch() && (flags & ~replaceExisting) == 0;
  if (!isPossible)
    RaiseError(file.IsScratch() ? ORXSimException::wrongState : ORXSimException::invalidArgument,
               std::string("Backing up ") + file.Path() + " to " + name.AsUtf8() + " is not possible: " +
                   (file.IsScratch() ? "it is a scratch file" : "the flags are not 0 or 1") + ".");
  file.CopyTo(name.AsUtf8(), (flags & replaceExisting) != 0);
}

ORXSimContextID ORXSimDatabase::CreateContext(ORXSimNamespaceID space) {
  return RequireOpen().AddContext(space).ID();
}

ORXSimArray<ORXSimContextID> ORXSimDatabase::Contexts() const {
  ORXSimArray<ORXSimContextID> ids;
  for (auto const& [number, context] : RequireOpen().Contexts())
    ids.Append(context->ID());
  return ids;
}

bool ORXSimDatabase::IsReadOnly() const noexcept { return m_open != nullptr && m_open->File().IsReadOnly(); }
