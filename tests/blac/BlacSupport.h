#pragma once

#include "tests/support/Dense.h"

#include <string>

/// A symmetric matrix.
Dense RandomSymmetric(int n, double addedToDiagonal = 0);
/// op(A) by the letter of the option.
Dense Op(char trans, Dense const& a);
/// The triangle column by column without gaps.
std::vector<double> Packed(char uplo, Dense const& a);

/// What the program's own error handler was last told, as "name/position"; forgets it. Empty without a call.
std::string TakeReport();
