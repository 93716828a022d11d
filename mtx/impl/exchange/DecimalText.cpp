#include "mtx/impl/exchange/DecimalText.h"

#include "mtx/impl/exchange/PowersOfTen.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string_view>

namespace orx {

// Both directions multiply a significand w of 64 bits by the leading 128 bits of a power of ten, and round
// the product once:
//
//     w         [1.......]                            w 2^a: the double, or the digits of the text
//     10^q      [1.......|........]...                cut off
//     product   [??......|........|........]          192 bits, too small by less than 2^64 units
//                 high      middle    low
//               [ kept |r| rest    ]                  kept: 16 decimal digits, or the 53 bits of a double
//
// The bits of 10^q that were cut off carry at most 1 into middle. The round bit r and all bits above it are
// therefore right unless rest is all ones, and there is a tie only if rest is all zeros. Where these cases
// are not decided, the reader turns to exact arithmetic. The writer never needs it: see Scale.
//
// Text is handled eight digits at a time, as the bytes of one word, the first digit in the lowest byte. The
// idea to decide by 128 bits of a precomputed power is from D. Lemire, Number parsing at a gigabyte per
// second, Software: Practice and Experience 51 (2021).

static_assert(std::endian::native == std::endian::little, "digits are handled as bytes of a word");

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::uint64_t signBit = std::uint64_t{1} << 63;
constexpr std::uint64_t infinityBits = 0x7FF0000000000000;
constexpr std::uint64_t implicitBit = std::uint64_t{1} << 52;
constexpr int exponentBias = 1023;

constexpr std::uint64_t tenTo8 = 100'000'000;
constexpr std::uint64_t tenTo15 = 1'000'000'000'000'000;

/// Up to 10^27 the leading 64 bits are the whole power, and the product drawn above is exact without low.
constexpr int largestExactPower = 27;
struct Product {
  std::uint64_t high;
  std::uint64_t middle;
};

Product Multiply(std::uint64_t w, PowerOfTen const& power) {
  Wide const upper = Wide{w} * power.high + static_cast<std::uint64_t>((Wide{w} * power.low) >> 64);
  return {static_cast<std::uint64_t>(upper >> 64), static_cast<std::uint64_t>(upper)};
}

// Eight digits in a word

/// Returns the eight digits of number < 10^8, each 0 to 9 in one byte. Splits all parts at once, into halves
/// of 4, 2 and 1 digits. The factors are 1/100 and 1/10 in binary, exact enough for parts of 4 and 2 digits.
std::uint64_t SplitEightDigits(std::uint64_t number) {
  std::uint64_t const fours = number / 10000 | (number % 10000) << 32;
  std::uint64_t const hundreds = (fours * 10486 >> 20) & 0x0000007F0000007F;
  std::uint64_t const twos = hundreds | (fours - 100 * hundreds) << 16;
  std::uint64_t const tens = (twos * 103 >> 10) & 0x000F000F000F000F;
  return tens | (twos - 10 * tens) << 8;
}

/// The inverse of SplitEightDigits.
std::uint64_t JoinEightDigits(std::uint64_t digits) {
  std::uint64_t const twos = (digits * (1 + (10 << 8)) >> 8) & 0x00FF00FF00FF00FF;
  std::uint64_t const fours = (twos * (1 + (100 << 16)) >> 16) & 0x0000FFFF0000FFFF;
  return fours * (1 + (std::uint64_t{10000} << 32)) >> 32;
}

constexpr std::uint64_t eightZeros = 0x3030303030303030;

void StoreWord(char* out, std::uint64_t word) { std::memcpy(out, &word, sizeof word); }

char* WriteEightDigits(char* out, std::uint64_t number) {
  StoreWord(out, SplitEightDigits(number) + eightZeros);
  return out + 8;
}

// Writing

/// 10^15 <= digits < 10^16, value = digits 10^(exponent - 15).
struct SixteenDigits {
  std::uint64_t digits;
  int exponent;
};

/// Returns the decimal exponent of w 2^(binaryExponent - 63), where w has its top bit set: the decimal
/// exponent of 2^binaryExponent or, if a power of ten lies between the two numbers, one more. Just below that
/// power the result may be one too large, which is harmless because the digits round up to the power.
int DecimalExponent(std::uint64_t w, int binaryExponent) {
  int const smaller = (binaryExponent * 78913) >> 18; // log10(2)
  bool const powerBetween = BinaryExponent(smaller + 1) == binaryExponent;
  return smaller + static_cast<int>(powerBetween & (w >= powersOfTen[smaller + 1].high));
}

/// Returns w 2^(binaryExponent - 63) rounded to 16 digits, ties to even. For q from 0 to 27 the product is
/// exact, and a tie is recognised. For other q it is too small by less than 2^-71 of the last digit, and a
/// search of each binade by continued fractions finds no double closer to a tie than 2^-63: rounding is
/// always decided.
SixteenDigits Scale(std::uint64_t w, int binaryExponent) {
  int const exponent = DecimalExponent(w, binaryExponent);
  int const q = 15 - exponent;
  auto const [high, middle] = Multiply(w, powersOfTen[q]);
  int const restBits = 61 - binaryExponent - BinaryExponent(q); // bits of high below the round bit: 8 to 13
  std::uint64_t kept = high >> restBits;                        // and the round bit
  bool const tie = middle == 0 && high << (64 - restBits) == 0;
  if (tie && (kept & 3) == 1) --kept;
  std::uint64_t const digits = (kept + 1) >> 1;
  if (digits == 10 * tenTo15) return {tenTo15, exponent + 1};
  return {digits, exponent};
}

char* WriteExponent(char* out, int exponent) {
  int const magnitude = exponent < 0 ? -exponent : exponent;
  out[0] = 'e';
  out[1] = exponent < 0 ? '-' : '+';
  out[2] = static_cast<char>('0' + magnitude / 100);
  out += magnitude < 100 ? 2 : 3;
  out[0] = static_cast<char>('0' + magnitude / 10 % 10);
  out[1] = static_cast<char>('0' + magnitude % 10);
  return out + 2;
}

char* WriteText(char* out, std::string_view text) { return std::copy(text.begin(), text.end(), out); }

char* WriteZeroOrNonfinite(char* out, std::uint64_t bits) {
  bool const negative = (bits & signBit) != 0;
  std::uint64_t const magnitude = bits & ~signBit;
  if (magnitude == 0) return WriteText(out, negative ? "-0.000000000000000e+00" : "0.000000000000000e+00");
  if (magnitude == infinityBits)
    return WriteText(out, negative ? "              -inf" : "               inf");
  return WriteText(out, negative ? "              -nan" : "               nan");
}

} // namespace

char* WriteScientific15(char* out, double value) {
  auto const bits = std::bit_cast<std::uint64_t>(value);
  std::uint64_t const magnitude = bits & ~signBit;
  if (magnitude - 1 >= infinityBits - 1) return WriteZeroOrNonfinite(out, bits);

  bool const normal = magnitude >= implicitBit;
  std::uint64_t const significand = normal ? (magnitude & (implicitBit - 1)) | implicitBit : magnitude;
  int const exponent = normal ? static_cast<int>(magnitude >> 52) : 1;
  int const shift = std::countl_zero(significand);
  SixteenDigits const scaled = Scale(significand << shift, exponent - exponentBias + 11 - shift);

  *out = '-';
  out += bits >> 63;
  WriteEightDigits(out + 1, scaled.digits / tenTo8);
  out[0] = out[1];
  out[1] = '.';
  WriteEightDigits(out + 9, scaled.digits % tenTo8);
  return WriteExponent(out + 17, scaled.exponent);
}

char* WriteUnsigned(char* out, std::uint64_t value) {
  if (value >= tenTo8) return WriteEightDigits(WriteUnsigned(out, value / tenTo8), value % tenTo8);
  std::uint64_t const digits = SplitEightDigits(value);
  int const leadingZeros = std::countr_zero(digits | std::uint64_t{1} << 56) / 8; // 0 keeps one digit
  StoreWord(out, (digits + eightZeros) >> (8 * leadingZeros));
  return out + 8 - leadingZeros;
}

namespace {

// Reading digits

unsigned Digit(char c) { return static_cast<unsigned>(c) - '0'; }
bool IsDigit(char c) { return Digit(c) <= 9; }
char Lower(char c) { return static_cast<char>(c | 0x20); }

constexpr std::array<std::uint32_t, 8> smallPowersOfTen = [] {
  std::array<std::uint32_t, 8> powers{1};
  for (std::size_t k = 1; k < powers.size(); ++k)
    powers[k] = powers[k - 1] * 10;
  return powers;
}();

/// Returns the eight characters at p as one word, with '0' to '9' turned into 0 to 9.
std::uint64_t LoadWord(char const* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return word ^ eightZeros;
}

/// Returns a word with the top bit set in each byte that is above 9 in `word`. A carry may falsify bytes
/// after the first such byte, but not that byte.
std::uint64_t OtherThanDigits(std::uint64_t word) {
  return ((word + 0x7676767676767676) | word) & 0x8080808080808080;
}

/// Appends the digits at p, at most eight, to the number and returns how many there are. REQUIRES eight
/// readable characters.
[[gnu::always_inline]] inline int AppendGroup(char const* p, std::uint64_t& number) {
  std::uint64_t const word = LoadWord(p);
  std::uint64_t const others = OtherThanDigits(word);
  // Eight digits have a branch of their own: when the processor predicts it, it goes on after the group
  // without waiting for the count.
  if (others == 0) {
    number = number * tenTo8 + JoinEightDigits(word);
    return 8;
  }
  int const count = std::countr_zero(others) / 8;
  number = number * smallPowersOfTen[count] + JoinEightDigits(word << 8 << (56 - 8 * count));
  return count;
}

/// Appends all digits at p to the number, modulo 2^64, and returns their end.
char const* AppendDigits(char const* p, char const* last, std::uint64_t& number) {
  while (last - p >= 8) {
    int const count = AppendGroup(p, number);
    p += count;
    if (count < 8) return p;
  }
  for (; p < last && IsDigit(*p); ++p)
    number = number * 10 + Digit(*p);
  return p;
}

bool SkipSign(char const*& p, char const* last) {
  if (p == last) return false;
  bool const negative = *p == '-';
  p += static_cast<int>(negative | (*p == '+')); // not ||: signs are too random to be predicted
  return negative;
}

// Reading doubles

/// Numbers of up to 19 digits always fit into 64 bits.
constexpr std::int64_t maxExactDigits = 19;

/// The result when 128 bits of the power of ten do not decide. No double without its sign has these bits.
constexpr std::uint64_t undecided = ~std::uint64_t{0};

/// Returns the bits of the double nearest to number 10^q, the bits of infinity if no double is large enough,
/// or `undecided`.
[[gnu::always_inline]] inline std::uint64_t NearestDouble(std::uint64_t number, std::int64_t q) {
  if (number == 0 || q < smallestPowerOfTen) return 0;
  if (q > std::numeric_limits<double>::max_exponent10) return infinityBits;

  int const leadingZeros = std::countl_zero(number);
  auto const [high, middle] = Multiply(number << leadingZeros, powersOfTen[static_cast<int>(q)]);
  int const top = static_cast<int>(high >> 63);
  int exponent = BinaryExponent(static_cast<int>(q)) + top - leadingZeros + exponentBias + 62;
  int restBits = 9 + top; // bits of high below the round bit
  if (exponent < 0) [[unlikely]] {
    restBits -= exponent; // a denormal has fewer bits
    exponent = 0;
    if (restBits > 63) return 0; // below 2^-1075 by more than the error of the product
  }
  std::uint64_t kept = high >> restBits; // and the round bit
  if (middle + 1 <= 1) [[unlikely]] {    // all zeros or all ones
    std::uint64_t const ones = (std::uint64_t{1} << restBits) - 1;
    bool const roundBit = (kept & 1) != 0;
    if (!roundBit && middle != 0 && (high & ones) == ones) return undecided;
    if (roundBit && middle == 0 && (high & ones) == 0) {
      if (q < 0 || q > largestExactPower) return undecided;
      if ((kept & 2) == 0) --kept; // a tie, as the product is exact: to even
    }
  }
  // The top bit of kept adds 1 to the exponent, and a carry of the rounding does as well.
  return std::min((static_cast<std::uint64_t>(exponent) << 52) + ((kept + 1) >> 1), infinityBits);
}

/// The text of a finite number, without sign.
struct Decimal {
  char const* first; ///< start of the digits, which may include a point
  char const* end;
  std::int64_t exponent; ///< of the last digit
};

/// Calls visit(digit) for each digit from the first that is not 0 on.
template<class Visit>
void ForEachSignificantDigit(Decimal const& decimal, Visit visit) {
  char const* p = decimal.first;
  while (p < decimal.end && (*p == '0' || *p == '.'))
    ++p;
  for (; p < decimal.end; ++p)
    if (*p != '.') visit(*p);
}

/// Returns the double nearest to the decimal, or `undecided`. The decimal lies between its first 19 digits,
/// read as a number, and the next larger number: the result is decided if both round to the same double.
std::uint64_t NearestDoubleByLeadingDigits(Decimal const& decimal) {
  std::uint64_t leading = 0;
  std::int64_t count = 0;
  ForEachSignificantDigit(decimal, [&](char digit) {
    if (++count <= maxExactDigits) leading = leading * 10 + Digit(digit);
  });
  std::int64_t const dropped = std::max(count - maxExactDigits, std::int64_t{0});
  std::uint64_t const lower = NearestDouble(leading, decimal.exponent + dropped);
  if (dropped == 0) return lower;
  return lower == NearestDouble(leading + 1, decimal.exponent + dropped) ? lower : undecided;
}

/// Leaves exact arithmetic to the standard library, in a form that it reads: digits without a point. A number
/// halfway between two doubles has at most 768 digits: further digits matter only by not being all 0, and a
/// single 1 stands for them.
std::uint64_t NearestDoubleExactly(Decimal const& decimal) {
  constexpr int maxDigits = 768;
  std::array<char, maxDigits + 32> text;
  char* end = text.data();
  std::int64_t exponent = decimal.exponent;
  bool more = false;
  ForEachSignificantDigit(decimal, [&](char digit) {
    if (end < text.data() + maxDigits) {
      *end++ = digit;
    } else {
      ++exponent;
      more |= digit != '0';
    }
  });
  if (more) {
    *end++ = '1';
    --exponent;
  }
  bool const isSmall = exponent + (end - text.data()) < 0;
  *end++ = 'e';
  end = std::to_chars(end, text.data() + text.size(), exponent).ptr;

  double value = 0;
  if (std::from_chars(text.data(), end, value).ec == std::errc()) return std::bit_cast<std::uint64_t>(value);
  return isSmall ? 0 : infinityBits; // the library reports both as out of range
}

bool BeginsExponent(char c) { return Lower(c) == 'e' || Lower(c) == 'd'; }

/// Adds the exponent at p, if there is one, to `exponent`. Ignores its further digits from 2^56 on: the
/// number is out of range then, with any digits that fit into memory.
DecimalResult ReadExponent(char const* p, char const* last, std::int64_t& exponent) {
  constexpr std::int64_t enough = std::int64_t{1} << 56;
  if (p == last || !BeginsExponent(*p)) return {p, DecimalStatus::Ok};
  ++p;
  bool const negative = SkipSign(p, last);
  if (p == last || !IsDigit(*p)) return {p, DecimalStatus::Malformed};
  std::int64_t magnitude = 0;
  for (; p < last && IsDigit(*p); ++p)
    if (magnitude < enough) magnitude = magnitude * 10 + Digit(*p);
  exponent += negative ? -magnitude : magnitude;
  return {p, DecimalStatus::Ok};
}

struct Nonfinite {
  std::string_view name;
  std::uint64_t bits;
};
constexpr std::array nonfinites{Nonfinite{"infinity", infinityBits}, Nonfinite{"inf", infinityBits},
                                Nonfinite{"nan", infinityBits | implicitBit >> 1}};

DecimalResult ReadNonfinite(char const* p, char const* last, std::uint64_t& bits) {
  for (auto const& [name, itsBits] : nonfinites) {
    bool const found = last - p >= std::ssize(name) &&
                       std::equal(name.begin(), name.end(), p, [](char a, char b) { return a == Lower(b); });
    if (!found) continue;
    bits = itsBits;
    return {p + name.size(), DecimalStatus::Ok};
  }
  return {p, DecimalStatus::Malformed};
}

double WithSign(std::uint64_t bits, bool negative) {
  return std::bit_cast<double>(bits | static_cast<std::uint64_t>(negative) << 63);
}

char const* SkipDigits(char const* p, char const* last) { return std::find_if_not(p, last, IsDigit); }

/// Reads any text; compares with `last` before each character.
[[gnu::noinline]] DecimalResult ReadAnyDouble(char const* p, char const* last, double& value) {
  bool const negative = SkipSign(p, last);
  Decimal decimal{p, p, 0};
  decimal.end = SkipDigits(p, last);
  std::int64_t digitCount = decimal.end - p;
  if (decimal.end < last && *decimal.end == '.') {
    char const* const fraction = decimal.end + 1;
    decimal.end = SkipDigits(fraction, last);
    decimal.exponent = fraction - decimal.end;
    digitCount -= decimal.exponent;
  }

  std::uint64_t bits = 0;
  DecimalResult const result =
      digitCount > 0 ? ReadExponent(decimal.end, last, decimal.exponent) : ReadNonfinite(p, last, bits);
  if (result.status != DecimalStatus::Ok) return result;
  if (digitCount > 0) {
    bits = NearestDoubleByLeadingDigits(decimal);
    if (bits == undecided) bits = NearestDoubleExactly(decimal);
    if (bits == infinityBits) return {result.end, DecimalStatus::OutOfRange};
  }
  value = WithSign(bits, negative);
  return result;
}

/// A number in its common form, which is read without a comparison with `last`: digits that fit into 64 bits,
/// no plus sign before them, an exponent of three digits at most.
struct CommonDecimal {
  char const* p;
  std::int64_t digitCount = 0;
  std::uint64_t number = 0;
  std::int64_t exponent = 0; ///< of the last digit
};

/// Most characters that reading a CommonDecimal looks at: a sign, 1 + 8 digits, a point, 3 * 8 digits, an
/// exponent, and the character after it.
constexpr std::ptrdiff_t commonLength = 1 + 9 + 1 + 24 + 5 + 1;

/// Appends up to 24 digits of a fraction. First tries the 15 digits that WriteScientific15 writes, in two
/// words that overlap.
[[gnu::always_inline]] inline void ReadFraction(CommonDecimal& decimal) {
  char const* const first = decimal.p;
  std::uint64_t const front = LoadWord(first);
  std::uint64_t const back = LoadWord(first + 7);
  if ((OtherThanDigits(front) | OtherThanDigits(back)) == 0 && !IsDigit(first[15])) {
    decimal.number = decimal.number * tenTo15 + JoinEightDigits(front) * smallPowersOfTen[7] +
                     JoinEightDigits(back & ~std::uint64_t{0xFF});
    decimal.p += 15;
  } else {
    int count = 8;
    for (int group = 0; group < 3 && count == 8; ++group) {
      count = AppendGroup(decimal.p, decimal.number);
      decimal.p += count;
    }
  }
  decimal.exponent = first - decimal.p;
  decimal.digitCount += decimal.p - first;
}

/// Reads an exponent of up to three digits. Returns false if it has no digit.
[[gnu::always_inline]] inline bool ReadShortExponent(CommonDecimal& decimal) {
  char const* p = decimal.p + 1;
  bool const negative = *p == '-';
  p += static_cast<int>(negative | (*p == '+'));
  unsigned magnitude = Digit(*p);
  if (magnitude > 9) return false;
  ++p;
  for (int k = 0; k < 2 && IsDigit(*p); ++k, ++p)
    magnitude = magnitude * 10 + Digit(*p);
  decimal.p = p;
  decimal.exponent += negative ? -std::int64_t{magnitude} : std::int64_t{magnitude};
  return true;
}

/// Reads any text, as ReadAnyDouble does.
[[gnu::noinline]] DecimalResult ReadAnyInt32(char const* p, char const* last, std::int32_t& value) {
  bool const negative = SkipSign(p, last);
  char const* digits = p;
  std::uint64_t number = 0;
  p = AppendDigits(p, last, number);
  if (p == digits) return {p, DecimalStatus::Malformed};
  if (p - digits > maxExactDigits) digits = std::find_if(digits, p, [](char c) { return c != '0'; });
  std::uint64_t const limit = std::numeric_limits<std::int32_t>::max() + static_cast<std::uint64_t>(negative);
  if (p - digits > maxExactDigits || number > limit) return {p, DecimalStatus::OutOfRange};
  value = static_cast<std::int32_t>(negative ? 0 - number : number);
  return {p, DecimalStatus::Ok};
}

} // namespace

DecimalResult ReadDouble(char const* first, char const* last, double& value) {
  if (last - first < commonLength) [[unlikely]]
    return ReadAnyDouble(first, last, value);
  bool const negative = *first == '-';
  char const* const digits = first + static_cast<int>(negative);
  if (!IsDigit(*digits)) return ReadAnyDouble(first, last, value);

  CommonDecimal decimal{digits + 1, 1, Digit(*digits), 0};
  if (*decimal.p != '.') {
    int const count = AppendGroup(decimal.p, decimal.number);
    decimal.p += count;
    decimal.digitCount += count;
  }
  if (*decimal.p == '.') {
    ++decimal.p;
    ReadFraction(decimal);
  }
  bool common = !BeginsExponent(*decimal.p) || ReadShortExponent(decimal);
  common = common && !IsDigit(*decimal.p) && decimal.digitCount <= maxExactDigits;
  std::uint64_t const bits = common ? NearestDouble(decimal.number, decimal.exponent) : undecided;
  if (bits >= infinityBits) [[unlikely]]
    return ReadAnyDouble(first, last, value);
  value = WithSign(bits, negative);
  return {decimal.p, DecimalStatus::Ok};
}

DecimalResult ReadInt32(char const* first, char const* last, std::int32_t& value) {
  if (last - first >= 8) [[likely]] {
    std::uint64_t number = 0;
    int const count = AppendGroup(first, number);
    if (count > 0 && count < 8) {
      value = static_cast<std::int32_t>(number);
      return {first + count, DecimalStatus::Ok};
    }
  }
  return ReadAnyInt32(first, last, value);
}

} // namespace orx
