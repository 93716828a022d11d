#pragma once

#include "core/ORXBasException.h"

#include <string>

namespace orx::host {

/// What a call of these entry points itself gets wrong; everything else is an error of the library.
class HostError : public ORXBasException {
public:
  enum Cause {
    wrongHandle = 501,   ///< null, of a deleted object, of another kind or origin
    wrongArgument = 502, ///< a null pointer, a number out of range, a name that is not there
    wrongOrder = 503,    ///< a call that has to come earlier, later or not at all
  };

  HostError(Cause cause, std::string const& text) : m_cause(cause), m_text(text.c_str()) {}

  atr_String AsString() const override { return m_text; }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return m_cause; }

private:
  Cause m_cause;
  atr_String m_text;
};

/// The name of the entry point at work; null when there is none.
inline char const* entryPointAtWork = nullptr;

/// Throws a HostError whose text begins with the name of the entry point at work.
[[noreturn]] inline void RaiseHostError(HostError::Cause cause, std::string const& text,
                                        char const* file = __builtin_FILE(), int line = __builtin_LINE()) {
  HostError(cause, entryPointAtWork + (": " + text)).Throw(file, line);
}

} // namespace orx::host
