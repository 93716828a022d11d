#pragma once

#include "core/ORXBasException.h"
#include "core/atr_String.h"
#include "core/orx_export.h"

/// What a factorization, a solve or an eigenvalue analysis cannot do. The text names the operation, what was
/// expected and what was found; the number tells the cause. The object that raised it can be used again.
class ORX_EXPORT ORXSrvSolveError : public ORXBasException {
public:
  enum Cause {
    illegalInput = 401,   ///< shapes that do not fit, values that are not finite, calls out of order
    singular = 402,       ///< the matrix has no inverse; the text names unknowns
    beyondBudget = 403,   ///< more memory is needed than the budget allows, even with the factors on disk
    onDisk = 404,         ///< the folder for factors on disk cannot be written, or is full
    indefiniteMass = 405, ///< x^T M x < 0 for some x: modes with such a matrix are not ordered on a line
    notCertified = 406,   ///< the number of modes could not be confirmed; what was found can be read
    engineFailed = 407,   ///< the engine ended with a code that it should not give
  };

  /// `text` is copied.
  ORXSrvSolveError(Cause cause, char const* text, int unknown = -1)
      : m_cause(cause), m_text(text), m_unknown(unknown) {}

  /// Zero-based: an unknown that moves in a motion without stiffness; -1 when there is none to name.
  int Unknown() const noexcept { return m_unknown; }

  atr_String AsString() const override { return m_text; }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return m_cause; }

private:
  Cause m_cause;
  atr_String m_text;
  int m_unknown;
};
