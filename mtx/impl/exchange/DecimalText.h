#pragma once

#include <cstdint>

namespace orx {

// Numbers to decimal text and back, for the lines "row column value" of text files. Both directions are
// exact: the text is the correctly rounded decimal of the double, and the double is the nearest to the text
// (ties to even), whatever the locale and the rounding mode of the processor are.

constexpr int maxScientific15Length = 23; ///< -1.234567890123456e-308
constexpr int maxUnsignedLength = 20;     ///< 18446744073709551615

/// Writes the characters that printf writes for "%18.15e" and returns their end; no terminating zero.
/// REQUIRES space for maxScientific15Length characters, all of which may be overwritten.
char* WriteScientific15(char* out, double value);

/// Writes the decimal digits and returns their end. REQUIRES space for maxUnsignedLength characters, all of
/// which may be overwritten.
char* WriteUnsigned(char* out, std::uint64_t value);

enum class DecimalStatus : std::uint8_t {
  Ok,
  Malformed,  ///< the text does not begin with a number, or ends within its exponent
  OutOfRange, ///< a number beyond the finite doubles or the 32-bit integers
};

struct DecimalResult {
  /// End of the number, also when it is out of range; for Malformed, the first character that does not fit.
  char const* end;
  DecimalStatus status;
};

/// Reads the number that begins at `first` and ends before the first character that cannot continue it; the
/// caller checks that a delimiter follows. Characters at and after `last` are never looked at, and the fast
/// path is taken only with some forty characters before `last`. `value` is untouched unless the status is Ok.
///
///     [+-] digits [. digits] [(e|E|d|D) [+-] digits]    with a digit before or behind the point
///     [+-] inf | infinity | nan                         in upper or lower case
///
/// A number that is too small becomes a denormal or a zero with its sign; a number that is too large is
/// OutOfRange.
DecimalResult ReadDouble(char const* first, char const* last, double& value);

/// Reads [+-] digits as ReadDouble does.
DecimalResult ReadInt32(char const* first, char const* last, std::int32_t& value);

} // namespace orx
