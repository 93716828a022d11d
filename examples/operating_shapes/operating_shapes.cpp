// The shapes in which a string moves when pressure waves travel along it: the cross-spectral matrix of its
// points,
//
//     H = sum over 100 frequencies of   u * u^H     with u the complex amplitudes of all points,
//
// is collected out of core, one triangle of it, and projected onto the modes of the string. Each eigenvalue
// is the energy of one operating shape. H is complex: its real form, which is what is stored, has each
// eigenvalue twice.
//
//     operating_shapes

#include "examples/support/Program.h"

#include "mtx/ORXSrvHermitianScrDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace {

using Complex = std::complex<double>;

constexpr int points = 800;
constexpr int movingModes = 20; // of which the string's motion consists
constexpr int shownModes = 6;   // onto which H is projected
constexpr int frequencies = 100;
constexpr int frequenciesTogether = 20;
constexpr int block = 128;

/// Mode m = 0, 1, ... of a string that is held at both ends; these columns are orthonormal.
double Mode(int m, int point) {
  return std::sqrt(2.0 / (points + 1)) * std::sin(std::numbers::pi * (m + 1) * (point + 1) / (points + 1));
}

double ModeFrequency(int m) { return std::numbers::pi * (m + 1); }

double Frequency(int k) { return ModeFrequency(shownModes) * (k + 0.5) / frequencies; }

/// How much each mode moves under a wave of 1.7 times the string's own speed, with damping of 2 %.
std::vector<Complex> ModalAmplitudes(double omega) {
  std::vector<Complex> amplitudes(movingModes);
  for (int m = 0; m < movingModes; ++m) {
    Complex load = 0.0;
    for (int p = 0; p < points; ++p)
      load += Mode(m, p) * std::polar(1.0, -omega / 1.7 * (p + 1) / (points + 1));
    double const own = ModeFrequency(m);
    amplitudes[static_cast<std::size_t>(m)] = load / Complex(own * own - omega * omega, 0.04 * own * omega);
  }
  return amplitudes;
}

/// Writes the columns of a complex vector's real form, (a; b) and (-b; a), into two columns of X.
void SetRealForm(ORXSrvMatrix& x, int column, std::vector<Complex> const& vector) {
  auto const n = static_cast<std::int64_t>(vector.size());
  double* const first = x.Values() + 2 * n * column;
  double* const second = first + 2 * n;
  for (std::int64_t i = 0; i < n; ++i) {
    Complex const value = vector[static_cast<std::size_t>(i)];
    first[i] = second[n + i] = value.real();
    first[n + i] = value.imag();
    second[i] = -value.imag();
  }
}

std::vector<Complex> Motion(std::vector<Complex> const& amplitudes) {
  std::vector<Complex> motion(points);
  for (int p = 0; p < points; ++p)
    for (int m = 0; m < movingModes; ++m)
      motion[static_cast<std::size_t>(p)] += Mode(m, p) * amplitudes[static_cast<std::size_t>(m)];
  return motion;
}

ORXSrvMatrix Identity(int order) {
  ORXSrvMatrix identity(order, order);
  identity = 0.0;
  for (std::int64_t i = 0; i < order; ++i)
    identity.Values()[i * (order + 1)] = 1.0;
  return identity;
}

/// H of all points, on disk; some frequencies at a time, because each time reads and writes the file once.
void Accumulate(ORXSrvHermitianScrDenseMatrix& h) {
  ORXSrvMatrix const weights = Identity(2 * frequenciesTogether);
  ORXSrvMatrix x(2 * points, 2 * frequenciesTogether);
  for (int first = 0; first < frequencies; first += frequenciesTogether) {
    for (int k = 0; k < frequenciesTogether; ++k)
      SetRealForm(x, 2 * k, Motion(ModalAmplitudes(Frequency(first + k))));
    h.AddProduct(1.0, x, weights);
  }
}

/// Phi^T * H * Phi with the real form of the modes.
ORXSrvMatrix Projected(ORXSrvHermitianScrDenseMatrix const& h) {
  ORXSrvMatrix phi(2 * points, 2 * shownModes);
  for (int m = 0; m < shownModes; ++m) {
    std::vector<Complex> mode(points);
    for (int p = 0; p < points; ++p)
      mode[static_cast<std::size_t>(p)] = Mode(m, p);
    SetRealForm(phi, 2 * m, mode);
  }
  ORXSrvMatrix projected(2 * shownModes, 2 * shownModes);
  h.Project(phi, projected);
  return projected;
}

/// The same without H, from the amplitudes of the modes.
ORXSrvMatrix FromAmplitudes() {
  ORXSrvMatrix x(2 * shownModes, 2 * frequencies);
  for (int k = 0; k < frequencies; ++k) {
    std::vector<Complex> amplitudes = ModalAmplitudes(Frequency(k));
    amplitudes.resize(shownModes);
    SetRealForm(x, 2 * k, amplitudes);
  }
  ORXSrvHermitianScrDenseMatrix sum(2 * shownModes, 2 * shownModes);
  sum.AddProduct(1.0, x, Identity(2 * frequencies));
  ORXSrvMatrix values(2 * shownModes, 2 * shownModes);
  sum.GetColumns(0, 2 * shownModes - 1, values);
  return values;
}

/// Eigenvalues, the largest first.
std::vector<double> Eigenvalues(ORXSrvMatrix a) {
  int const order = a.NumberOfRows();
  ORXSrvMatrix values(order, 1);
  ORXSrvMatrix vectors(order, order);
  a.SolveEigenproblemSymmetric(Identity(order), values, vectors);
  return {std::make_reverse_iterator(values.Values() + order), std::make_reverse_iterator(values.Values())};
}

void Print(std::vector<double> const& energies, std::vector<double> const& expected) {
  double sum = 0.0;
  for (double const energy : energies)
    sum += energy / 2.0;
  std::printf("shape      energy   once more      share   from the modes' amplitudes\n");
  for (std::size_t k = 0; k < energies.size(); k += 2) {
    std::printf("%5zu  %10.4f  %10.4f  %7.3f %%   %10.4f\n", k / 2 + 1, energies[k], energies[k + 1],
                100.0 * energies[k] / sum, expected[k]);
    bool const agree = std::fabs(energies[k] - energies[k + 1]) <= 1e-9 * energies[0] &&
                       std::fabs(energies[k] - expected[k]) <= 1e-9 * energies[0];
    if (!agree) throw std::runtime_error("the energies of a shape differ");
  }
}

void Run() {
  ORXSrvHermitianScrDenseMatrix h(2 * points, block);
  Accumulate(h);
  double const full = 8e-6 * (2.0 * points) * (2.0 * points);
  double const stored = 4e-6 * (2.0 * points) * (2.0 * points + block);
  std::printf("a string of %d points under a travelling wave: %d frequencies, a complex matrix of order %d,\n"
              "its real form of order %d in blocks of %d: %.1f of %.1f MB\n\n",
              points, frequencies, points, 2 * points, block, stored, full);
  Print(Eigenvalues(Projected(h)), Eigenvalues(FromAmplitudes()));
}

} // namespace

int main() { return support::RunProgram("operating_shapes", Run); }
