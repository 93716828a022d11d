#include "mtx/impl/exchange/DecimalText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

using namespace orx;

namespace {

using Limits = std::numeric_limits<double>;

// ---- writing

/// In a block of exactly the documented length, so that a sanitizer sees any excess.
std::string Written(double value) {
  std::vector<char> buffer(maxScientific15Length, '#');
  return {buffer.data(), WriteScientific15(buffer.data(), value)};
}

std::string Written(std::uint64_t value) {
  std::vector<char> buffer(maxUnsignedLength, '#');
  return {buffer.data(), WriteUnsigned(buffer.data(), value)};
}

std::string Printed(double value, char const* format = "%18.15e") {
  char buffer[128];
  return {buffer, static_cast<std::size_t>(std::snprintf(buffer, sizeof buffer, format, value))};
}

void ExpectWrittenAsPrinted(double value) {
  for (double const signedValue : {value, -value})
    ASSERT_EQ(Written(signedValue), Printed(signedValue)) << Printed(signedValue, "%a");
}

void ExpectNeighboursWrittenAsPrinted(double value) {
  ExpectWrittenAsPrinted(std::nextafter(value, 0.0));
  ExpectWrittenAsPrinted(value);
  ExpectWrittenAsPrinted(std::nextafter(value, Limits::infinity()));
}

TEST(DecimalText, WritesRandomDoublesAsPrintf) {
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> mantissa(1, 10);
  for (int k = 0; k < 50000; ++k) {
    ExpectWrittenAsPrinted(std::bit_cast<double>(random()));                        // any, NaN too
    ExpectWrittenAsPrinted(std::bit_cast<double>(random() >> 12 >> random() % 52)); // denormal
    ExpectWrittenAsPrinted(mantissa(random) * std::pow(10.0, static_cast<int>(random() % 30) - 15));
    ExpectWrittenAsPrinted(static_cast<double>(random() >> random() % 64)); // integer
  }
}

TEST(DecimalText, WritesPowersAndTheirNeighboursAsPrintf) {
  for (int exponent = -1074; exponent < 1024; ++exponent)
    ExpectNeighboursWrittenAsPrinted(std::ldexp(1.0, exponent));
  for (int exponent = -323; exponent <= 308; ++exponent)
    ExpectNeighboursWrittenAsPrinted(std::strtod(("1e" + std::to_string(exponent)).c_str(), nullptr));
  for (double const value : {0.0, Limits::max(), Limits::min(), Limits::infinity(), Limits::quiet_NaN()})
    ExpectWrittenAsPrinted(value);
}

TEST(DecimalText, WritesTiesToEven) {
  // j 2^-(k+1), j odd, has the digits of j 5^k / 2: 16 and a half if j 5^k lies between 2 10^15 and 2 10^16.
  std::mt19937_64 random(2);
  double fives = 1;
  for (int k = 0; k <= 22; ++k, fives *= 5) {
    double const last = std::min(2e16 / fives, 0x1p53);
    std::uniform_int_distribution<std::int64_t> half(static_cast<std::int64_t>(1e15 / fives) + 1,
                                                     static_cast<std::int64_t>(last / 2) - 2);
    for (int repeat = 0; repeat < 500; ++repeat) {
      double const tie = std::ldexp(static_cast<double>(2 * half(random) + 1), -(k + 1));
      ASSERT_EQ(Printed(tie, "%.16e").substr(17, 2), "5e") << "not a tie";
      ExpectWrittenAsPrinted(tie);
    }
  }
}

TEST(DecimalText, WritesTheHardestDoublesAsPrintf) {
  // Closest of all to a tie without being one, within 2^-60 of the last digit.
  for (double const value :
       {0x1.011f2d73116f4p+538, 0x1.4166f8cfd5cb1p+541, 0x1.491daad0ba280p+531, 0x1.9b651584e8b20p+534,
        0x1.a80a6e566428cp-655, 0x1.a999ddec72acap+600, 0x1.83010aba78a54p+967, 0x1.e3c14d6916ce9p+970,
        0x1.f83a32f69f129p-824, 0x1.dfc11fbf46087p+521, 0x1.5f6de9d5d6b5bp+446, 0x1.79e0d5979f4f3p+755})
    ExpectNeighboursWrittenAsPrinted(value);
}

TEST(DecimalText, WritesUnsignedIntegers) {
  for (std::uint64_t power = 1;; power *= 10) {
    for (std::uint64_t const value : {power - 1, power, power + 1, power * 9})
      EXPECT_EQ(Written(value), std::to_string(value));
    if (power == 10'000'000'000'000'000'000U) break;
  }
  EXPECT_EQ(Written(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  std::mt19937_64 random(3);
  for (int k = 0; k < 20000; ++k) {
    std::uint64_t const value = random() >> random() % 64;
    ASSERT_EQ(Written(value), std::to_string(value));
  }
}

// ---- reading

template<class Value>
using Reader = DecimalResult (*)(char const*, char const*, Value&);

template<class Value>
struct Reading {
  DecimalStatus status;
  std::size_t length;
  Value value;

  bool operator==(Reading const& other) const {
    auto const bytes = [](Value v) { return std::bit_cast<std::array<unsigned char, sizeof(Value)>>(v); };
    return status == other.status && length == other.length && bytes(value) == bytes(other.value);
  }
  friend std::ostream& operator<<(std::ostream& out, Reading const& r) {
    return out << "status " << static_cast<int>(r.status) << ", length " << r.length << ", value " << r.value;
  }
};

/// What the value is when nothing was stored.
constexpr int untouched = -77;

template<class Value>
Reading<Value> ReadFirst(std::vector<char> const& text, Reader<Value> read) {
  Value value = untouched;
  DecimalResult const result = read(text.data(), text.data() + text.size(), value);
  return {result.status, static_cast<std::size_t>(result.end - text.data()), value};
}

/// Reads the text twice: as the end of a heap block, where a sanitizer sees any character read behind it, and
/// with other text behind it, where there is room for reading several characters at a time.
template<class Value>
Reading<Value> Read(std::string_view text, Reader<Value> read) {
  std::vector<char> block(text.begin(), text.end());
  Reading<Value> const atEnd = ReadFirst(block, read);
  block.push_back('\n');
  block.insert(block.end(), 64, '7');
  EXPECT_EQ(ReadFirst(block, read), atEnd) << text;
  return atEnd;
}

Reading<double> ReadsDouble(std::string_view text) { return Read<double>(text, ReadDouble); }
Reading<std::int32_t> ReadsInt(std::string_view text) { return Read<std::int32_t>(text, ReadInt32); }

Reading<double> DoubleIs(double value, std::size_t length) { return {DecimalStatus::Ok, length, value}; }
template<class Value = double>
Reading<Value> OutOfRange(std::size_t length) {
  return {DecimalStatus::OutOfRange, length, untouched};
}
template<class Value = double>
Reading<Value> Malformed(std::size_t length) {
  return {DecimalStatus::Malformed, length, untouched};
}

/// The whole of a finite number is read as strtod does, which knows no d.
void ExpectReadAsStrtod(std::string const& text) {
  std::string plain = text;
  for (char& c : plain)
    if (c == 'd' || c == 'D') c = 'e';
  double const expected = std::strtod(plain.c_str(), nullptr);
  ASSERT_EQ(ReadsDouble(text),
            std::isinf(expected) ? OutOfRange(text.size()) : DoubleIs(expected, text.size()))
      << text;
}

std::string RandomNumber(std::mt19937_64& random) {
  std::string digits;
  for (std::size_t count = 1 + random() % 25; digits.size() < count;)
    digits += static_cast<char>('0' + random() % 10);
  if (random() % 4 == 0) digits.insert(0, random() % 12, '0');
  if (random() % 4 != 0) digits.insert(random() % (digits.size() + 1), 1, '.');
  static constexpr char const* signs[] = {"", "-", "+"};
  std::string text = std::string(signs[random() % 3]).append(digits);
  if (random() % 8 == 0) return text;
  int const exponent = random() % 2 == 0 ? static_cast<int>(random() % 656) - 345 // all there are
                                         : static_cast<int>(random() % 40) - 20;
  return text + "eEdD"[random() % 4] + (exponent < 0 ? "-" : signs[2 * (random() % 2)]) +
         (random() % 8 == 0 ? "00" : "") + std::to_string(std::abs(exponent));
}

TEST(DecimalText, ReadsRandomNumbersAsStrtod) {
  std::mt19937_64 random(4);
  for (int k = 0; k < 200000; ++k)
    ASSERT_NO_FATAL_FAILURE(ExpectReadAsStrtod(RandomNumber(random)));
}

/// The digits of the number halfway between the double and the next larger one in magnitude, all of them.
std::string Halfway(double value) {
  std::string text(900, ' ');
  int const exponent = std::max(std::ilogb(value), -1022) - 53;
  long double const halfway = static_cast<long double>(value) + std::ldexp(1.0L, exponent);
  text.resize(std::snprintf(text.data(), text.size(), "%.780Le", halfway));
  return text;
}

std::string LastDigitLowered(std::string text) {
  --text[text.find_last_not_of('0', text.find('e') - 1)];
  return text;
}

TEST(DecimalText, RoundsAtHalfwayPointsToEven) {
  static_assert(std::numeric_limits<long double>::digits > Limits::digits);
  std::mt19937_64 random(6);
  for (int k = 0; k < 1000; ++k) {
    bool const denormal = k % 4 == 0;
    double const value = std::bit_cast<double>(random() % (denormal ? 1ULL << 52 : 0x7FEFULL << 48));
    double const next = std::nextafter(value, Limits::infinity());
    bool const isEven = std::bit_cast<std::uint64_t>(value) % 2 == 0;
    std::string const text = Halfway(value);
    std::size_t const end = text.find('e');
    std::string above = text;
    above[end - 1] = '1'; // 780 digits are more than any halfway point has
    std::string farAbove = text;
    farAbove.insert(end, std::string(500, '0').append("1"));
    std::string const below = LastDigitLowered(text);

    EXPECT_EQ(ReadsDouble(text), DoubleIs(isEven ? value : next, text.size())) << text;
    EXPECT_EQ(ReadsDouble(above), DoubleIs(next, above.size())) << above;
    EXPECT_EQ(ReadsDouble(farAbove), DoubleIs(next, farAbove.size())) << farAbove;
    EXPECT_EQ(ReadsDouble(below), DoubleIs(value, below.size())) << below;
    for (std::size_t const digits : {17U, 18U, 19U, 20U, 25U, 40U})
      ASSERT_NO_FATAL_FAILURE(ExpectReadAsStrtod(text.substr(0, digits + 1) + text.substr(end)));
  }
}

TEST(DecimalText, RoundsHalfwayToZeroAndToInfinity) {
  std::string const tiny = Halfway(0);
  EXPECT_EQ(ReadsDouble(tiny), DoubleIs(0, tiny.size()));
  EXPECT_EQ(ReadsDouble(std::string("-").append(LastDigitLowered(tiny))), DoubleIs(-0.0, tiny.size() + 1));
  std::string const huge = Halfway(Limits::max());
  EXPECT_EQ(ReadsDouble(huge), OutOfRange(huge.size()));
  EXPECT_EQ(ReadsDouble(std::string("-").append(LastDigitLowered(huge))),
            DoubleIs(-Limits::max(), huge.size() + 1));
}

TEST(DecimalText, ReadsTheEndsOfTheRange) {
  std::istringstream texts(
      "1e-400 -1e-400 5e-324 2.4703282292062327e-324 2.4703282292062328e-324 2.470328229206232720e-324 "
      "2.470328229206232721e-324 2.47032822920623272088e-324 2.47032822920623272089e-324 "
      "2.2250738585072011e-308 2.2250738585072014e-308 1.7976931348623157e308 1.7976931348623158e308 "
      "1.7976931348623159e308 17976931348623158079e289 17976931348623158080e289 -1e309 1e308 "
      "9999999999999999999e-343 1e-99999999999999999999 1e99999999999999999999 -0e99999999999999999999 "
      "0e-99999999999999999999 1e000000000000000000000000007");
  for (std::string text; texts >> text;)
    ASSERT_NO_FATAL_FAILURE(ExpectReadAsStrtod(text));
  std::string const zeros(400, '0');
  for (auto const& [before, after] : {std::pair{"0.", "1e401"},
                                      {"1", "e-400"},
                                      {"1", ""},
                                      {"", "12.5"},
                                      {".", ""},
                                      {"", "."},
                                      {"12345678", "e-405"}})
    ASSERT_NO_FATAL_FAILURE(ExpectReadAsStrtod(before + zeros + after));
}

TEST(DecimalText, ReadsAndWritesAlikeInAnyRoundingMode) {
  for (int const mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO})
    for (std::string const text : {"0.1", "3e22", "-1.5e-7", "123456789012345678e-17", "9007199254740993.0",
                                   "1e23", "7e-5", "5e-324", "0.30000000000000000000001", "8.5"}) {
      double const value = std::strtod(text.c_str(), nullptr);
      std::string const printed = Printed(value);

      std::fesetround(mode);
      Reading<double> const reading = ReadsDouble(text);
      std::string const written = Written(value);
      std::fesetround(FE_TONEAREST);

      EXPECT_EQ(reading, DoubleIs(value, text.size())) << text;
      EXPECT_EQ(written, printed);
    }
}

TEST(DecimalText, ReadsNonfiniteNumbers) {
  for (char const* text : {"inf", "INF", "+Inf", "infinity", "+InFiNiTy"})
    EXPECT_EQ(ReadsDouble(text), DoubleIs(Limits::infinity(), std::string_view(text).size())) << text;
  EXPECT_EQ(ReadsDouble("-inf"), DoubleIs(-Limits::infinity(), 4));
  EXPECT_EQ(ReadsDouble("-Infinity"), DoubleIs(-Limits::infinity(), 9));
  EXPECT_EQ(ReadsDouble("nan"), DoubleIs(Limits::quiet_NaN(), 3));
  EXPECT_EQ(ReadsDouble("-NaN"), DoubleIs(std::copysign(Limits::quiet_NaN(), -1.0), 4));
}

TEST(DecimalText, StopsWhereADoubleEnds) {
  EXPECT_EQ(ReadsDouble("12a"), DoubleIs(12, 2));
  EXPECT_EQ(ReadsDouble("1.5.2"), DoubleIs(1.5, 3));
  EXPECT_EQ(ReadsDouble("0x10"), DoubleIs(0, 1));
  EXPECT_EQ(ReadsDouble("1,5"), DoubleIs(1, 1));
  EXPECT_EQ(ReadsDouble("7-3"), DoubleIs(7, 1));
  EXPECT_EQ(ReadsDouble("1e5e6"), DoubleIs(1e5, 3));
  EXPECT_EQ(ReadsDouble("5.\t"), DoubleIs(5, 2));
  EXPECT_EQ(ReadsDouble("infin"), DoubleIs(Limits::infinity(), 3));
  EXPECT_EQ(ReadsDouble("1\xB2"), DoubleIs(1, 1));
  EXPECT_EQ(ReadsDouble("1234567\xB8"), DoubleIs(1234567, 7));
  EXPECT_EQ(ReadsDouble("0.1234567:/"), DoubleIs(0.1234567, 9));
}

TEST(DecimalText, RefusesWhatIsNoDouble) {
  for (char const* text : {"", " 1", "e5", ".", ".e5", "x", "in", "na", "\n", "\xB1", "i", "$1"})
    EXPECT_EQ(ReadsDouble(text), Malformed(0)) << text;
  for (char const* text : {"+", "-", "+-1", "--1", "-.", "- 1", "-e1", "+nul"})
    EXPECT_EQ(ReadsDouble(text), Malformed(1)) << text;
  for (char const* text : {"1e", "1d", "1e ", "1Ex", "1e.5", "1e:2"})
    EXPECT_EQ(ReadsDouble(text), Malformed(2)) << text;
  for (char const* text : {"1e+", "1D-", "1e+-5", "1e- 5", "1e-/2"})
    EXPECT_EQ(ReadsDouble(text), Malformed(3)) << text;
}

TEST(DecimalText, ReadsIntegersUpToTheirLimits) {
  auto const isInt = [](std::string_view text, std::int32_t value) {
    EXPECT_EQ(ReadsInt(text), (Reading<std::int32_t>{DecimalStatus::Ok, text.size(), value})) << text;
  };
  isInt("2147483647", 2147483647);
  isInt("+2147483647", 2147483647);
  isInt("-2147483648", std::numeric_limits<std::int32_t>::min());
  isInt("0000000000000000000000002147483647", 2147483647);
  isInt("-0", 0);
  isInt("00000000000000000000000000000000", 0);
  for (int const power : {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000})
    for (int const value : {power - 1, power, power / 9 * 8})
      for (int const signedValue : {value, -value})
        isInt(std::to_string(signedValue), signedValue);

  for (std::string_view const text :
       {"2147483648", "-2147483649", "4294967296", "9999999999", "18446744073709551617",
        "-18446744073709551617", "100000000000000000000000000000000", "0000000000000000000000002147483648"})
    EXPECT_EQ(ReadsInt(text), OutOfRange<std::int32_t>(text.size())) << text;
}

TEST(DecimalText, StopsWhereAnIntegerEndsAndRefusesOthers) {
  for (auto const& [text, length, value] :
       {std::tuple{"12a", 2U, 12}, {"1.5", 1U, 1}, {"12345678/", 8U, 12345678}, {"123\xB4", 3U, 123}})
    EXPECT_EQ(ReadsInt(text), (Reading<int>{DecimalStatus::Ok, length, value}));
  for (char const* text : {"", " 1", "a", "."})
    EXPECT_EQ(ReadsInt(text), Malformed<std::int32_t>(0)) << text;
  for (char const* text : {"-", "+", "+-1", "-a"})
    EXPECT_EQ(ReadsInt(text), Malformed<std::int32_t>(1)) << text;
}

} // namespace
