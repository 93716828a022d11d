#pragma once

#include "solve/ORXSrvSparseFactor.h"

#include <string>

// Lines of reports on factorizations.

namespace orx::tool {

/// "# order 300: the factor of K has ...": what a factorization takes, as foreseen.
std::string EstimateText(char const* matrix, int order, ORXSrvFactorEstimate const& estimate);

/// "L D L^T, 1234 entries, 56 MB of memory": what it has taken.
std::string FactorText(ORXSrvFactorFacts const& facts);

/// "0 negative, 6 zero, 294 positive": of a symmetric matrix.
std::string InertiaText(ORXSrvFactorFacts const& facts);

} // namespace orx::tool
