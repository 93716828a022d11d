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

void ORXSrvProgress::Report(char const* operation, std::int64_t done, std::int64_t total) {
  if (host.function == nullptr) return;
  bool const goesOn = host.function(host.context, operation, done, total);
  if (!goesOn && done < total) ORXSrvMtxStopped(operation, done, total).Throw(sourceFile, __LINE__);
}

void BlockProgress::BlockDone() { ORXSrvProgress::Report(m_operation, ++m_done, m_total); }

ORXSrvMtxStopped::ORXSrvMtxStopped(char const* operation, std::int64_t done, std::int64_t total)
    : m_operation(operation), m_done(done), m_total(total) {}

atr_String ORXSrvMtxStopped::AsString() const {
  std::string const text = m_operation.AsText() + std::string(" stopped by the host after ") +
                           std::to_string(m_done) + " of " + std::to_string(m_total) + " blocks.";
  return atr_String(text.c_str());
}

void ORXSrvMtxStopped::Raise() const { throw *this; }
