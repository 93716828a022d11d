#include "core/ORXBasException.h"

#include <cstdio>
#include <cstdlib>
#include <string>

ORXBasException::~ORXBasException() = default;

atr_String ORXBasException::DeveloperReport() const {
  std::string const place =
      m_file != nullptr ? std::string(m_file) + ':' + std::to_string(m_line) : std::string("not raised");
  std::string const report = place + ": error " + std::to_string(ErrorCode()) + ": " + AsString().AsText();
  return atr_String(report.c_str());
}

atr_String ORXBasException::UserReport() const { return AsString(); }

void ORXBasException::Throw(char const* file, int line) {
  m_file = file;
  m_line = line;
  Raise();
  std::abort(); // an override of Raise that returns breaks its contract
}
