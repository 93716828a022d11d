#pragma once

#include "core/atr_String.h"
#include "core/mem_Allocator.h"
#include "core/orx_export.h"

/// Base of every exception of the suite. Hosts catch this one:
///
///     try { k.Factorize(pivots); }
///     catch (ORXBasException const& e) { std::fputs(e.AsString().AsText(), stderr); }
///
/// An object is constructed (no file, line 0) and then raised by Throw, which records where.
class ORX_EXPORT ORXBasException : public mem_AllocationOperators {
public:
  virtual ~ORXBasException();
  /// For the log: where it was raised, the error number and the message.
  virtual atr_String DeveloperReport() const;
  /// For the user of the host program: the message.
  virtual atr_String UserReport() const;
  /// The message.
  virtual atr_String AsString() const = 0;
  /// Throws a copy of the object as its own class.
  [[noreturn]] virtual void Raise() const = 0;
  /// The fixed number of the class.
  virtual int ErrorCode() const = 0;

  /// Records the place (`file` is lent for good: a literal) and raises.
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
