#include "sim/ORXSimTransaction.h"

#include "sim/ORXSimException.h"
#include "sim/impl/OpenDatabase.h"

/// What the copies of a transaction share.
class ORXSimTransactionRepr {
public:
  explicit ORXSimTransactionRepr(ORXSimContextID const& context) noexcept : m_context(context) {}
  ORXSimTransactionRepr(ORXSimTransactionRepr const&) = delete;
  ORXSimTransactionRepr& operator=(ORXSimTransactionRepr const&) = delete;
  ~ORXSimTransactionRepr() {
    if (!m_isOpen) return;
    if (sim::Context* const context = sim::LookUpContext(m_context)) context->AbandonTransaction();
  }

  ORXSimContextID const& Context() const noexcept { return m_context; }
  bool IsOpen() const noexcept { return m_isOpen; }
  void End() noexcept { m_isOpen = false; }

private:
  ORXSimContextID m_context;
  bool m_isOpen = true;
};

ORXSimTransaction::ORXSimTransaction(ORXSimContextID id) {
  sim::Context& context = sim::FindContext(id);
  context.Database().RequireWritable("open a transaction");
  if (context.HasTransaction()) {
    ORXSimException(ORXSimException::wrongState, "A transaction is already open on " + context.Name() + ".")
        .Throw(__FILE__, __LINE__);
  }
  m_record = std::make_shared<ORXSimTransactionRepr>(id);
  context.BeginTransaction();
}

void ORXSimTransaction::Commit() {
  sim::Context& context = sim::FindContext(Context());
  if (!m_record->IsOpen()) {
    ORXSimException(ORXSimException::wrongState,
                    "The transaction on " + context.Name() + " is already committed.")
        .Throw(__FILE__, __LINE__);
  }
  context.Database().Commit(context);
  context.EndTransaction();
  m_record->End();
}

ORXSimContextID ORXSimTransaction::Context() const noexcept { return m_record->Context(); }

bool ORXSimTransaction::IsOpen() const noexcept {
  return m_record->IsOpen() && sim::LookUpContext(m_record->Context()) != nullptr;
}
