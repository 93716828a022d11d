#include "sim/ORXSimTransaction.h"

#include "sim/impl/OpenDatabase.h"
#include "sim/impl/RaiseError.h"

using orx::sim::RaiseError;

/// The state that copies of a transaction share; its destruction abandons an open transaction.
class ORXSimTransactionRepr {
public:
  explicit ORXSimTransactionRepr(orx::sim::Context& context) noexcept
      : m_context(context.ID()), m_number(context.BeginTransaction()) {}
  ORXSimTransactionRepr(ORXSimTransactionRepr const&) = delete;
  ORXSimTransactionRepr& operator=(ORXSimTransactionRepr const&) = delete;
  ~ORXSimTransactionRepr() {
    if (IsOpen()) orx::sim::LookUpContext(m_context)->AbandonTransaction();
  }

  ORXSimContextID const& Context() const noexcept { return m_context; }
  bool IsOpen() const noexcept {
    orx::sim::Context const* const context = orx::sim::LookUpContext(m_context);
    return context != nullptr && context->HasTransaction(m_number);
  }

private:
  ORXSimContextID m_context;
  int m_number;
};

ORXSimTransaction::ORXSimTransaction(ORXSimContextID id) {
  orx::sim::Context& context = orx::sim::FindContext(id);
  context.Database().RequireWritable("open a transaction");
  if (context.HasTransaction())
    RaiseError(ORXSimException::wrongState, "A transaction is already open on " + context.Name() + ".");
  m_record = std::make_shared<ORXSimTransactionRepr>(context);
}

void ORXSimTransaction::Commit() {
  orx::sim::Context& context = orx::sim::FindContext(Context());
  if (!m_record->IsOpen())
    RaiseError(ORXSimException::wrongState,
               "The transaction on " + context.Name() + " is over: it was committed or abandoned.");
  context.Database().Commit(context);
  context.EndTransaction();
}

ORXSimContextID ORXSimTransaction::Context() const noexcept { return m_record->Context(); }

bool ORXSimTransaction::IsOpen() const noexcept { return m_record->IsOpen(); }
