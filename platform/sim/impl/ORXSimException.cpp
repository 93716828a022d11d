#include "sim/ORXSimException.h"

ORXSimDebugOut::~ORXSimDebugOut() = default;
ORXSimDebugOutString::~ORXSimDebugOutString() = default;

void ORXSimException::Write(ORXSimDebugOut& out) const {
  out.Write(("database error " + std::to_string(m_code) + ": ").c_str());
  out.Write(m_text.AsText());
}
