#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace orx {

/// The 128 leading bits of a power of ten, without rounding: 10^q = (high 2^64 + low + f)
/// 2^(BinaryExponent(q) - 127) with 0 <= f < 1, and the top bit of high set. f is 0 exactly for 0 <= q <= 55.
struct PowerOfTen {
  std::uint64_t high;
  std::uint64_t low;
};

constexpr int smallestPowerOfTen = -342; ///< 19 digits times a smaller power are zero as a double
constexpr int largestPowerOfTen = 339;   ///< scales the smallest denormal to 16 digits

/// floor(log2(10^q)), in the range of the table.
constexpr int BinaryExponent(int q) { return (q * 217706) >> 16; }

/// A natural number below 2^1024 that is multiplied or divided by five, step by step.
class PowerOfTenMaker {
public:
  /// 2^exponent
  constexpr explicit PowerOfTenMaker(int exponent) { m_words[exponent / 32] = 1U << (exponent % 32); }

  constexpr void MultiplyByFive() {
    std::uint64_t carry = 0;
    for (std::uint32_t& word : m_words) {
      carry += std::uint64_t{word} * 5;
      word = static_cast<std::uint32_t>(carry);
      carry >>= 32;
    }
  }
  /// Rounds down. Rounding at each step loses nothing: floor(floor(x / 5) / 5) = floor(x / 25).
  constexpr void DivideByFive() {
    std::uint64_t remainder = 0;
    for (int k = wordCount - 1; k >= 0; --k) {
      remainder = remainder << 32 | m_words[k];
      m_words[k] = static_cast<std::uint32_t>(remainder / 5);
      remainder %= 5;
    }
  }
  constexpr int TopBit() const { return 32 * TopWord() + 31 - std::countl_zero(m_words[TopWord()]); }
  constexpr PowerOfTen LeadingBits() const {
    return {SixtyFourBits(TopWord()), SixtyFourBits(TopWord() - 2)};
  }

private:
  constexpr int TopWord() const {
    int top = wordCount - 1;
    while (m_words[top] == 0)
      --top;
    return top;
  }
  constexpr std::uint64_t Word(int k) const { return k < 0 ? 0 : m_words[k]; }
  /// Returns 64 bits from word k down, shifted left by the number of leading zeros of the top word.
  constexpr std::uint64_t SixtyFourBits(int k) const {
    int const shift = std::countl_zero(m_words[TopWord()]);
    return (Word(k) << 32 | Word(k - 1)) << shift | Word(k - 2) >> (32 - shift);
  }

  static constexpr int wordCount = 32;
  std::array<std::uint32_t, wordCount> m_words{}; ///< lowest first
};

/// The table: powersOfTen[q], made by the compiler.
class PowersOfTen {
public:
  consteval PowersOfTen() {
    PowerOfTenMaker up(0);
    for (int q = 0; q <= largestPowerOfTen; ++q, up.MultiplyByFive())
      Store(q, up, q);
    // 5^342 has 795 bits: 2^1000 / 5^342 keeps 205 bits, more than the 128 that count.
    PowerOfTenMaker down(1000);
    for (int q = 0; q >= smallestPowerOfTen; --q, down.DivideByFive())
      Store(q, down, q - 1000);
  }

  /// REQUIRES smallestPowerOfTen <= q <= largestPowerOfTen
  constexpr PowerOfTen const& operator[](int q) const { return m_powers[q - smallestPowerOfTen]; }

private:
  /// Stores 10^q, which is the maker's number times 2^exponent. A wrong BinaryExponent stops the compiler
  /// here.
  consteval void Store(int q, PowerOfTenMaker const& maker, int exponent) {
    if (maker.TopBit() + exponent != BinaryExponent(q)) throw "BinaryExponent is not floor(log2(10^q))";
    m_powers[q - smallestPowerOfTen] = maker.LeadingBits();
  }

  std::array<PowerOfTen, largestPowerOfTen - smallestPowerOfTen + 1> m_powers{};
};

inline constexpr PowersOfTen powersOfTen;

} // namespace orx
