#include "tools/numerics/FactorText.h"

#include "tools/terminal/Text.h"

namespace orx::tool {
namespace {

double Megabytes(std::int64_t bytes) { return static_cast<double>(bytes) * 1e-6; }

} // namespace

std::string EstimateText(char const* matrix, int order, ORXSrvFactorEstimate const& estimate) {
  return Note(Format("order %d: the factor of %s has %.4g entries, takes %.3g operations and %.0f MB of "
                     "memory, or %.0f MB with the factor on disk",
                     order, matrix, static_cast<double>(estimate.entries), estimate.operations,
                     Megabytes(estimate.bytes), Megabytes(estimate.bytesOnDisk)));
}

std::string FactorText(ORXSrvFactorFacts const& facts) {
  return Format("%s, %s, %.0f MB of memory%s", facts.isSymmetric ? "L D L^T" : "L U",
                Counted(facts.entries, "entry", "entries").c_str(), Megabytes(facts.bytes),
                facts.isOnDisk ? ", the factor on disk" : "");
}

std::string InertiaText(ORXSrvFactorFacts const& facts) {
  return Format("%d negative, %d zero, %d positive", facts.negative, facts.zero, facts.positive);
}

} // namespace orx::tool
