#pragma once

#include "tools/formats/MatrixFile.h"

#include <cstdint>
#include <string>

namespace orx::tool {

/// A position, zero-based, with what both matrices have there; what is not stored is 0.
struct ValuePair {
  std::uint32_t row = 0;
  std::uint32_t column = 0;
  double a = 0.0;
  double b = 0.0;
};

/// Two values are equal when |a - b| is at most `absolute`, or `relative` max(|a|, |b|).
struct Tolerances {
  double relative = 0.0;
  double absolute = 0.0;
};

/// How two matrices of one shape differ. Two values that are equal, or both not a number, do not differ; an
/// infinity differs infinitely from any other value, and so does what is not a number.
struct Difference {
  double absolute = 0.0; ///< the largest |a - b|
  ValuePair absoluteAt;  ///< the first place of it
  double relative = 0.0; ///< the largest |a - b| / max(|a|, |b|)
  ValuePair relativeAt;
  std::int64_t onlyInA = 0; ///< positions that are stored in A alone, zeros too
  std::int64_t onlyInB = 0;
  std::int64_t inBoth = 0;
  std::int64_t beyond = 0; ///< positions whose values are not equal
};

/// REQUIRES matrices of one shape.
Difference Compare(ORXSrvSparseMatrix const& a, ORXSrvSparseMatrix const& b,
                   Tolerances const& tolerances = {});

struct CompareOptions {
  std::string pathA;
  std::string pathB;
  Tolerances tolerances;
};

struct Comparison {
  bool isEqual = false; ///< one shape, and no difference beyond the tolerances
  std::string text;     ///< what `orxmtx cmp` prints
};

Comparison CompareFiles(std::string const& pathA, std::string const& pathB, Tolerances const& tolerances);

} // namespace orx::tool
