#pragma once

#include <cstdint>

namespace orx {

// Numbers as decimal text and back, for the lines "row column value" of text files. Exact: the text is the
// correctly rounded decimal of the double, the double the one nearest to the text (ties to even), whatever
// the locale and the rounding mode of the processor.

constexpr int maxScientific15Length = 23; ///< -1.234567890123456e-308
constexpr int maxUnsignedLength = 20;     ///< 18446744073709551615

/// Writes what printf writes for "%18.15e" and returns the end of it; no terminating zero. REQUIRES room for
/// maxScientific15Length characters, all of which may be written to.
char* WriteScientific15(char* out, double value);

/// Writes the decimal digits and returns their end. REQUIRES room for maxUnsignedLength characters, all of
/// which may be written to.
char* WriteUnsigned(char* out, std::uint64_t value);

enum class DecimalStatus : std::uint8_t {
  Ok,
  Malformed,  ///< no number begins here, or it breaks off within its exponent
  OutOfRange, ///< a number, but beyond the finite doubles or beyond the integers asked for
};

struct DecimalResult {
  /// Behind the number, also when it is out of range; for Malformed, where the text stops making sense.
  char const* end;
  DecimalStatus status;
};

/// Reads the number that begins at `first` and ends where a character cannot continue it: the caller checks
/// that a delimiter follows. `last` ends the text, not the number: nothing at or behind it is looked at, and
/// the fast way is taken only with some forty characters left before it. `value` is untouched unless Ok.
///
///     [+-] digits [. digits] [(e|E|d|D) [+-] digits]    with a digit before or behind the point
///     [+-] inf | infinity | nan                         in upper or lower case
///
/// Too small a number becomes a denormal or a zero with its sign, too large a one is out of range.
DecimalResult ReadDouble(char const* first, char const* last, double& value);

/// As ReadDouble, for [+-] digits.
DecimalResult ReadInt32(char const* first, char const* last, std::int32_t& value);

} // namespace orx
