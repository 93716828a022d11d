#include "mtx/ORXSrvSimFileHandle.h"

#include "core/ORXUnicodeString.h"
#include "sim/ORXSimAssert.h"
#include "sim/ORXSimDatabase.h"

#include <cstdlib>
#include <utility>

namespace {

/// Reports a failed check and ends the process in a way that debuggers and crash handlers see. `line` is the
/// fixed line number that users know from such reports, not the present line of the check.
[[noreturn]] void FailAssertion(char const* expression, int line) {
  ORXSimAssert::ReportValidationFailure(expression, "mtx/impl/ORXSrvSimFileHandle", line);
  // Both are volatile: a compiler that knows the address, or sees that nobody reads it, drops the write.
  int volatile* volatile nowhere = nullptr;
  *nowhere = 0; // NOLINT(clang-analyzer-core.NullDereference): on purpose
  std::exit(1);
}

std::unique_ptr<ORXSimDatabase> CreateScratchFile(atr_String const& name) {
  auto database = std::make_unique<ORXSimDatabase>();
  database->SetDurability(ORXSimDurability::Scratch);
  database->CreateFile(ORXUnicodeString(name), 0, -1);
  return database;
}

} // namespace

// ORXSrvSimFileHandleRepr

ORXSrvSimFileHandleRepr::ORXSrvSimFileHandleRepr(std::unique_ptr<ORXSimDatabase> database)
    : m_database(std::move(database)) {}

// Calls the constructor that adopts a file: if the context cannot be created, the destructor deletes the
// file.
ORXSrvSimFileHandleRepr::ORXSrvSimFileHandleRepr(atr_String const& fileName)
    : ORXSrvSimFileHandleRepr(CreateScratchFile(fileName)) {
  m_context = m_database->CreateContext(ORXSimNamespaceID(-1, -1));
}

ORXSrvSimFileHandleRepr::~ORXSrvSimFileHandleRepr() { m_database->Discard(); }

// ORXSrvSimFileHandle

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers are compiled against it
void ORXSrvSimFileHandle::Associate(atr_String fileName) {
  if (!IsNull())
    FailAssertion("pointer.IsNull() && \"File Handle already associated with a SIM database.\"", 16);
  auto repr = std::make_unique<ORXSrvSimFileHandleRepr>(fileName);
  // The holder may run out of memory for its use count: until it succeeds, this function owns the file.
  cow_CountedHld::operator=(repr.get());
  static_cast<void>(repr.release());
}

ORXSimContextID ORXSrvSimFileHandle::ContextID() const {
  if (IsNull())
    FailAssertion("pointer.HasValue() && \"File Handle is not associated with a SIM database.\"", 22);
  return GetPtr()->ContextID();
}
