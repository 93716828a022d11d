#pragma once

/// The kinds of cells.
enum class ORXSimTypeKey : int {
  None = 0,
  Int32 = 1, ///< one 32-bit integer
  Double = 2 ///< one double-precision value
};

/// The type of a distribution's cells.
class ORXSimRangeType {
public:
  /// Untyped: a placeholder that no distribution can be created with.
  ORXSimRangeType() noexcept = default;
  explicit ORXSimRangeType(ORXSimTypeKey key) noexcept : m_key(key) {}

  ORXSimTypeKey Key() const noexcept { return m_key; }
  /// Bytes of a cell: 4 or 8; 0 when untyped.
  int CellBytes() const noexcept {
    return m_key == ORXSimTypeKey::Double ? 8 : m_key == ORXSimTypeKey::Int32 ? 4 : 0;
  }

private:
  ORXSimTypeKey m_key = ORXSimTypeKey::None;
};

/// One cell value with its type.
class ORXSimRangeValue {
public:
  /// The double 0.0.
  ORXSimRangeValue() noexcept = default;
  /// `secondWord` is -1: it has no meaning for scalars. A value for integer cells is a whole number of 32
  /// bits; a transfer checks that, and ignores `key`, when it creates cells.
  ORXSimRangeValue(double value, int secondWord, ORXSimTypeKey key) noexcept
      : m_value(value), m_secondWord(secondWord), m_key(key) {}

  double Value() const noexcept { return m_value; }
  ORXSimTypeKey Key() const noexcept { return m_key; }

private:
  double m_value = 0.0;
  int m_secondWord = -1;
  ORXSimTypeKey m_key = ORXSimTypeKey::Double;
};
