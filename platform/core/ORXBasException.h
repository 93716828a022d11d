#pragma once

#include "core/atr_String.h"
#include "core/mem_Allocator.h"
#include "core/orx_export.h"

/// Base of every exception of the suite. Hosts catch this class by reference:
///
///     try { k.Factorize(pivots); }
///     catch (ORXBasException const& e) { std::fputs(e.AsString().AsText(), stderr); }
///
/// The library constructs an object (no file, line 0) and calls Throw, which records the source line and
/// throws a copy.
class ORX_EXPORT ORXBasException : public mem_AllocationOperators {
public:
  virtual ~ORXBasException();
  /// Text for the log: file and line that raised the exception, error number, message.
  virtual atr_String DeveloperReport() const;
  /// Text for the user of the host program: the message.
  virtual atr_String UserReport() const;
  /// The message.
  virtual atr_String AsString() const = 0;
  /// Throws a copy of the object as its own class.
  [[noreturn]] virtual void Raise() const = 0;
  /// Number of the error, see docs/errors.md.
  virtual int ErrorCode() const = 0;

  /// Records file and line and calls Raise. `file` is not copied: it is a literal, such as __FILE__.
  [[noreturn]] void Throw(char const* file, int line);

  char const* File() const noexcept { return m_file; } ///< null until raised
  int Line() const noexcept { return m_line; }         ///< 0 until raised

protected:
  ORXBasException() noexcept = default;
  ORXBasException(ORXBasException const&) noexcept = default;
  ORXBasException& operator=(ORXBasException const&) noexcept = default;

private:
  char const* m_file = nullptr;
  int m_line = 0;
};
