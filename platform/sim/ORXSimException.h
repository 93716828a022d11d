#pragma once

#include "core/ORXBasException.h"
#include "core/atr_String.h"
#include "core/orx_export.h"

#include <cstdint>
#include <string>

/// A receiver of diagnostics.
class ORX_EXPORT ORXSimDebugOut {
public:
  virtual ~ORXSimDebugOut();
  /// Takes a zero-terminated text, which is the caller's and read during the call only.
  virtual void Write(char const* text) = 0;

protected:
  ORXSimDebugOut() noexcept = default;
  ORXSimDebugOut(ORXSimDebugOut const&) noexcept = default;
  ORXSimDebugOut& operator=(ORXSimDebugOut const&) noexcept = default;
};

/// Joins all texts that it receives, in their order.
class ORX_EXPORT ORXSimDebugOutString : public ORXSimDebugOut {
public:
  ORXSimDebugOutString() noexcept = default;
  ~ORXSimDebugOutString() override;
  void Write(char const* text) override { m_text += text; }
  /// The joined text, owned by this object; valid until the next Write.
  char const* AsText() const noexcept { return m_text.c_str(); }

private:
  std::string m_text;
};

/// A failure of the database. The text says what failed, in which file and on which object, what was expected
/// and what was found, and for a failure of the file system its reason and the space that was free. The
/// database and the file are then as before, unless the operation says otherwise. docs/errors.md lists causes
/// and cures by number.
///
///     try { transaction.Commit(); }
///     catch (ORXSimException const& e) { if (e.Code() == ORXSimException::writeFailed) FreeSomeSpace(); }
class ORX_EXPORT ORXSimException : public ORXBasException {
public:
  // Codes
  static constexpr std::uint16_t staleIdentifier = 10; ///< null, of a closed file or a lost object
  static constexpr std::uint16_t invalidArgument = 20; ///< never right, whatever the file holds
  static constexpr std::uint16_t viewDoesNotFit = 21;  ///< the selections or buffers of a transfer
  static constexpr std::uint16_t mirrorsDiffer =
      22;                                          ///< values for a cell of a symmetric matrix and its mirror
  static constexpr std::uint16_t wrongState = 30;  ///< calls in the wrong order
  static constexpr std::uint16_t notOpened = 40;   ///< the file cannot be opened or created
  static constexpr std::uint16_t fileInUse = 41;   ///< another process, or this one, has it open
  static constexpr std::uint16_t damaged = 42;     ///< damaged, or not a database
  static constexpr std::uint16_t writeFailed = 70; ///< full disk, file-size limit, read-only, I/O error
  static constexpr std::uint16_t readFailed = 71;  ///< an error of the device, or the file ends too early
  static constexpr std::uint16_t internalError = 90; ///< the storage library refuses what it should accept

  ORXSimException(std::uint16_t code, std::string const& text) : m_code(code), m_text(text.c_str()) {}

  std::uint16_t Code() const noexcept { return m_code; }
  /// Writes "database error CODE: TEXT" to `out`.
  void Write(ORXSimDebugOut& out) const;

  atr_String AsString() const override { return m_text; }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return m_code; }

private:
  std::uint16_t m_code;
  atr_String m_text;
};
