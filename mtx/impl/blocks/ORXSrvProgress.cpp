#include "mtx/ORXSrvProgress.h"

#include "mtx/impl/blocks/BlockProgress.h"

#include <string>

using namespace orx;

namespace {

constexpr char sourceFile[] = "mtx/impl/ORXSrvProgress.cpp";

struct Host {
  ORXSrvProgress::Function function = nullptr;
  void* context = nullptr;
};
Host host;

} // namespace

void ORXSrvProgress::Set(Function function, void* context) noexcept { host = {function, context}; }

void BlockProgress::BlockDone() {
  ++m_done;
  if (host.function == nullptr) return;
  bool const goesOn = host.function(host.context, m_operation, m_done, m_total);
  if (!goesOn && m_done < m_total) ORXSrvMtxStopped(m_operation, m_done, m_total).Throw(sourceFile, __LINE__);
}

ORXSrvMtxStopped::ORXSrvMtxStopped(char const* operation, std::int64_t done, std::int64_t total)
    : m_operation(operation), m_done(done), m_total(total) {}

atr_String ORXSrvMtxStopped::AsString() const {
  std::string const text = m_operation.AsText() + std::string(" stopped by the host after ") +
                           std::to_string(m_done) + " of " + std::to_string(m_total) + " blocks.";
  return atr_String(text.c_str());
}

void ORXSrvMtxStopped::Raise() const { throw *this; }
