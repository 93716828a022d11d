#include "core/ORXUnicodeString.h"

#include <cstdint>

namespace {

/// Number of bytes of the well-formed UTF-8 sequence at p; 0 when it is malformed.
int SequenceLength(unsigned char const* p) noexcept {
  if (p[0] < 0x80) return 1;
  int const length = p[0] >= 0xF0 ? 4 : p[0] >= 0xE0 ? 3 : 2;
  if (p[0] < 0xC0 || p[0] > 0xF4) return 0;
  std::uint32_t point = p[0] & (0x7Fu >> length);
  for (int i = 1; i < length; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    point = point << 6 | (p[i] & 0x3Fu);
  }
  constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  bool const surrogate = point >= 0xD800 && point <= 0xDFFF;
  return point < smallest[length] || point > 0x10FFFF || surrogate ? 0 : length;
}

} // namespace

int ORXUnicodeString::CountCodePoints() const noexcept {
  int count = 0;
  auto const* p = reinterpret_cast<unsigned char const*>(AsUtf8());
  while (*p != 0) {
    int const length = SequenceLength(p);
    if (length == 0) return -1;
    p += length;
    ++count;
  }
  return count;
}
