#include "tools/commands/ModesReport.h"

#include "tools/terminal/Text.h"

#include <algorithm>
#include <cmath>

namespace orx::tool {
namespace {

/// Below this the terms of x^T K x cancel so far that a file of ten digits could not tell the rest from 0.
/// The lowest modes of common structures are at 1e-4, those of a beam of a hundred elements at 1e-8.
constexpr double weakShare = 1e-9;

/// A factor between neighbouring eigenvalues that structures do not have by their own stiffness.
constexpr double farAbove = 1e6;

/// The relative error of an eigenvalue of which no digit is known.
constexpr double noDigit = 0.5;

std::string ShiftsText(ModalSolution const& s) {
  std::string text;
  for (double const shift : s.shifts)
    text += (text.empty() ? "" : " and ") + Format("%.6g", shift);
  return text;
}

/// "1.5e+03 < lambda < 2e+06"
std::string RangeText(ModeCount const& count) {
  std::string const to = Format("lambda < %.6g", count.to);
  return std::isfinite(count.from) ? Format("%.6g < ", count.from) + to : to;
}

std::string SparseMethodText(ModalSolution const& s) {
  std::string text = Note(Format("sparse: %s, %s of K - sigma M, sigma = ", s.method.c_str(),
                                 Counted(std::ssize(s.shifts), "factorization", "factorizations").c_str()) +
                          ShiftsText(s));
  for (ModeCount const& count : s.counts)
    text += Note("certified: " + Counted(count.count, "eigenvalue", "eigenvalues") + " with " +
                 RangeText(count) + ", counted by inertia, all found");
  return text;
}

std::string MethodText(ModalSolution const& s) {
  if (s.isSparse) return SparseMethodText(s);
  std::string const mass = s.isMassDefinite ? "M is positive definite" : "M is not positive definite";
  std::string text = s.isStiffnessDefinite
                         ? (s.isMassDefinite ? "M and K are positive definite" : mass + ", K is")
                         : (s.isMassDefinite ? mass + ", K is not" : "neither M nor K is positive definite") +
                               ", K + sigma M is";
  if (s.shifts == std::vector<double>{0.0})
    return Note(text + ": solved as M x = nu K x, lambda = 1/nu, which keeps the low end accurate");
  text += ": solved as M x = nu (K + sigma M) x, lambda = 1/nu - sigma, sigma = " + ShiftsText(s);
  return Note(text + (s.shifts.size() > 1 ? ", each mode with the one that serves it best" : ""));
}

std::string ExceptionsText(ModalSolution const& s) {
  std::string text;
  auto const say = [&](std::int64_t count, char const* one, char const* many, std::string const& rest) {
    if (count > 0) text += Note(Counted(count, one, many) + rest);
  };
  say(static_cast<std::int64_t>(s.emptyUnknowns.size()), "unknown", "unknowns",
      " without stiffness and mass left out: " + ShortList(s.emptyUnknowns));
  say(static_cast<std::int64_t>(s.heldUnknowns.size()), "motion", "motions",
      " of several unknowns without stiffness and mass left out, their eigenvalue is 0/0; held at 0 is "
      "unknown " +
          ShortList(s.heldUnknowns));
  say(s.infiniteEigenvalues, "eigenvalue", "eigenvalues", " infinite to rounding: motions without mass");
  say(s.negativeMasses, "eigenvalue", "eigenvalues",
      " with negative mass, x^T M x < 0: M is indefinite, modes are in order of magnitude");
  return text;
}

std::string WeakModesText(ModalSolution const& s) {
  std::int64_t count = 0;
  double largest = 0.0;
  for (Mode const& mode : s.modes) {
    if (mode.isRigid || mode.stiffnessShare >= weakShare) continue;
    ++count;
    largest = std::max(largest, mode.stiffnessShare);
  }
  if (count == 0) return {};
  return Note(
      Counted(count, "mode", "modes") +
      Format(" with x^T K x at most %.1e of its terms: rigid, if the values of K have errors of that size",
             largest));
}

/// Where the modes of a body that is held by next to nothing end and its elastic ones begin.
std::string GroupsText(ModalSolution const& s) {
  std::string text;
  for (std::size_t i = 1; i < s.modes.size(); ++i) {
    Mode const& below = s.modes[i - 1];
    Mode const& above = s.modes[i];
    bool const isComparable = !below.isRigid && below.eigenvalue > 0.0 && above.eigenvalue > 0.0;
    if (isComparable && above.eigenvalue > farAbove * below.eigenvalue)
      text +=
          Note(Format("%s far below the others: the eigenvalue of mode %zu is %.1e times that of mode %zu",
                      i == 1 ? "mode 1 lies" : Format("modes 1 to %zu lie", i).c_str(), i + 1,
                      above.eigenvalue / below.eigenvalue, i));
  }
  return text;
}

std::string LostModesText(ModalSolution const& s) {
  auto const lost = std::count_if(s.modes.begin(), s.modes.end(),
                                  [](Mode const& mode) { return !mode.isRigid && !(mode.error < noDigit); });
  if (lost == 0) return {};
  return Note(Counted(lost, "mode", "modes") +
              " lost in rounding errors: no digit of the eigenvalue is known");
}

std::string ModeNotesText(ModalSolution const& s, int count) {
  std::string text;
  auto const countModes = [&](auto const& test) {
    return std::count_if(s.modes.begin(), s.modes.end(), test);
  };
  auto const rigid = countModes([](Mode const& mode) { return mode.isRigid; });
  auto const negative = countModes([](Mode const& mode) { return !mode.isRigid && mode.eigenvalue < 0.0; });
  if (rigid > 0)
    text += Note(Counted(rigid, "mode", "modes") + " rigid: eigenvalue 0 to rounding, shown as 0 Hz");
  if (negative > 0)
    text += Note(Counted(negative, "mode", "modes") +
                 " with a negative eigenvalue: the frequency is imaginary, shown with a minus sign");
  text += WeakModesText(s) + LostModesText(s) + GroupsText(s);
  if (s.finiteEigenvalues < count)
    text += Note(Format("%d modes asked for, there are %d", count, s.finiteEigenvalues));
  return text;
}

/// Digits that the estimated error leaves, and one more.
int Digits(double error) {
  if (!(error < 1.0)) return 1;
  return std::clamp(1 + static_cast<int>(std::ceil(-std::log10(error))), 1, 16);
}

std::string ModeLine(int number, Mode const& mode) {
  int const digits = Digits(mode.isRigid ? 1.0 : mode.error);
  return Format("%6d %22.*g %24.*e %10.2e %10.1e\n", number, std::min(digits, 15), Frequency(mode),
                digits - 1, mode.eigenvalue, mode.residual, mode.error);
}

std::string TableText(ModalSolution const& solution) {
  std::string text =
      Note("residual: ||K x - lambda M x|| / || |K||x| + |lambda||M||x| ||; if rigid ||K x|| / || |K||x| + "
           "sigma |M||x| ||") +
      Note("error: of the eigenvalue, relative, as estimated; that of the frequency is half of it") +
      Format("#%5s %22s %24s %10s %10s\n", "mode", "frequency_hz", "eigenvalue", "residual", "error");
  int number = 0;
  for (Mode const& mode : solution.modes)
    text += ModeLine(++number, mode);
  return text;
}

} // namespace

std::string ModesText(SourceFacts const& k, SourceFacts const& m, ModalSolution const& solution, int count) {
  int const order = std::max(k.Order(), m.Order());
  return SourceText(k, order) + SourceText(m, order) + MethodText(solution) + ExceptionsText(solution) +
         ModeNotesText(solution, count) + TableText(solution);
}

std::string ShapesFileText(std::string const& path) {
  return Note("shapes: " + path + ", rows by modes, scaled to |x^T M x| = 1");
}

} // namespace orx::tool
