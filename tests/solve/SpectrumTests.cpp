// Modes against spectra in closed form: models of finite elements, and pairs of matrices made from a
// spectrum.

#include "solve/ORXSrvModes.h"
#include "solve/ORXSrvSolveError.h"
#include "tests/solve/ModeChecks.h"
#include "tests/solve/SolveSupport.h"
#include "tests/support/Raised.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <numeric>

namespace {

/// Linear elements along a line of unit length, its ends free or fixed.
struct Line {
  int elements;
  bool isFree;

  int Order() const { return isFree ? elements + 1 : elements - 1; }
  /// Values of stiffness and mass at (i, j), |i - j| <= 1.
  std::array<double, 2> At(int i, int j) const {
    double const h = 1.0 / elements;
    if (i != j) return {-1 / h, h / 6};
    bool const isEnd = isFree && (i == 0 || i == elements);
    return {(isEnd ? 1 : 2) / h, (isEnd ? 2 : 4) * h / 6};
  }
  double Eigenvalue(int k) const {
    double const c = std::cos((isFree ? k : k + 1) * std::numbers::pi / elements);
    return 6.0 * elements * elements * (1 - c) / (2 + c);
  }
};

/// A box of trilinear elements, the Laplace operator: the eigenvalues are sums of those of the lines.
struct Box {
  std::array<Line, 3> lines;
  Sparse k{0, 0}, m{0, 0};

  explicit Box(std::array<Line, 3> const& along) : lines(along) {
    int const order = lines[0].Order() * lines[1].Order() * lines[2].Order();
    k = Assembled(order, [&](auto add) { Add(add, true); });
    m = Assembled(order, [&](auto add) { Add(add, false); });
  }

  template<class Write>
  void Add(Write add, bool isStiffness) const {
    int const nx = lines[0].Order(), ny = lines[1].Order(), nz = lines[2].Order();
    auto const near = [](int i, int n, auto visit) {
      for (int j = std::max(0, i - 1); j <= std::min(n - 1, i + 1); ++j)
        visit(j);
    };
    for (int row = 0; row < nx * ny * nz; ++row) {
      int const x = row % nx, y = row / nx % ny, z = row / nx / ny;
      near(x, nx, [&](int a) {
        near(y, ny, [&](int b) {
          near(z, nz, [&](int c) {
            auto const [kx, mx] = lines[0].At(x, a);
            auto const [ky, my] = lines[1].At(y, b);
            auto const [kz, mz] = lines[2].At(z, c);
            add(row, (c * ny + b) * nx + a,
                isStiffness ? kx * my * mz + mx * ky * mz + mx * my * kz : mx * my * mz);
          });
        });
      });
    }
  }

  std::vector<double> Eigenvalues() const {
    std::vector<double> values;
    for (int x = 0; x < lines[0].Order(); ++x)
      for (int y = 0; y < lines[1].Order(); ++y)
        for (int z = 0; z < lines[2].Order(); ++z)
          values.push_back(lines[0].Eigenvalue(x) + lines[1].Eigenvalue(y) + lines[2].Eigenvalue(z));
    std::ranges::sort(values);
    return values;
  }
};

/// K = L Lambda L^T and M = L D L^T with a sparse triangle L at random: the eigenvalues are lambda / d.
struct Planted {
  Sparse k{0, 0}, m{0, 0};

  Planted(std::vector<double> lambda, std::vector<double> const& mass, unsigned seed) {
    std::mt19937_64 generator(seed);
    int const order = static_cast<int>(lambda.size());
    std::vector<int> place(lambda.size());
    std::iota(place.begin(), place.end(), 0);
    std::ranges::shuffle(place, generator);
    std::vector<std::vector<std::pair<int, double>>> columns(lambda.size());
    std::uniform_real_distribution<double> share(-0.5, 0.5);
    for (int c = 0; c < order; ++c) {
      columns[place[c]].emplace_back(c, 1.0);
      for (int const step : {1, 1 + static_cast<int>(generator() % 15)})
        if (c + step < order) columns[place[c]].emplace_back(c + step, share(generator));
    }
    auto const sum = [&](std::vector<double> const& diagonal) {
      return Assembled(order, [&](auto add) {
        for (std::size_t c = 0; c < columns.size(); ++c)
          for (auto const& [i, a] : columns[c])
            for (auto const& [j, b] : columns[c])
              add(i, j, diagonal[c] * (a * b));
      });
    };
    k = sum(lambda);
    m = sum(mass);
  }
};

} // namespace

TEST(Spectrum, OfBoxesIsThatOfTheDiscretization) {
  Box const boxes[] = {Box({Line{400, false}, Line{2, false}, Line{2, false}}),  // a bar
                       Box({Line{60, true}, Line{40, true}, Line{2, false}}),    // a free membrane
                       Box({Line{14, false}, Line{14, false}, Line{14, false}}), // six-fold frequencies
                       Box({Line{12, true}, Line{12, true}, Line{12, true}})};
  for (Box const& box : boxes) {
    std::vector<double> const exact = box.Eigenvalues();
    ORXSrvModes modes(box.k, box.m);
    modes.FindLowest(40);
    ExpectModes(modes, First(exact, 40), exact.back());
    modes.FindBetween(Hertz(exact[20] * 0.999), Hertz(exact[60] * 1.001));
    ExpectModes(modes, Between(exact, exact[20] * 0.999, exact[60] * 1.001), exact.back());
  }
}

TEST(Spectrum, OfABeamOnSupportsIsThatOfTwoUnknownsForEachWave) {
  // Deflections W sin(j t) and slopes R cos(j t) solve the equations of all nodes j at once.
  for (int const elements : {30, 400}) {
    double const h = 1.0 / elements;
    std::vector<double> exact;
    for (int wave = 1; wave <= 20; ++wave) {
      double const t = wave * std::numbers::pi / elements, s = std::sin(t), c = std::cos(t);
      double const u = 2 * std::pow(std::sin(t / 2), 2); // 1 - c
      double const k[3] = {24 * u, -12 * h * s, h * h * (8 + 4 * c)};
      double const m[3] = {312 + 108 * c, 26 * h * s, h * h * (8 - 6 * c)};
      double const detM = m[0] * m[2] - m[1] * m[1], detK = 48 * h * h * u * u;
      double const mixed = k[0] * m[2] + k[2] * m[0] - 2 * k[1] * m[1];
      exact.push_back(420 / std::pow(h, 4) * 2 * detK / (mixed + std::sqrt(mixed * mixed - 4 * detM * detK)));
    }
    Beam const beam(elements, {0, 2 * elements});
    Sparse const k = beam.K(), m = beam.M();
    ORXSrvModes modes(k, m);
    modes.FindLowest(20);
    ExpectModes(modes, exact, std::pow(elements, 4));
  }
}

TEST(Spectrum, ThatWasPlantedIsFound) {
  for (unsigned seed = 5; seed <= 6; ++seed) {
    // Three below zero, five rigid ones, a cluster, one forty times, the others spread; unknowns without
    // mass.
    std::vector<double> lambda{-30, -4, -0.5}, mass;
    lambda.insert(lambda.end(), 5, 0.0);
    for (int k = 0; k < 6; ++k)
      lambda.push_back(1 + k * 1e-12);
    lambda.insert(lambda.end(), 40, 7.0);
    for (int k = 0; k < 250; ++k)
      lambda.push_back(10 + k * (1 + 0.01 * k));
    std::vector<double> const exact = lambda;
    double const scale = 200 * exact.back(); // sums in K round more than its last digit
    mass.assign(lambda.size(), 1.0);
    for (int k = 0; k < 60; ++k) {
      lambda.push_back(5 + k);
      mass.push_back(0.0);
    }
    Planted const pair(lambda, mass, seed);
    ORXSrvModes modes(pair.k, pair.m);
    for (int const count : {1, 5, 8, 30, 54, 70}) {
      EXPECT_EQ(Raised([&] { modes.FindLowest(count); }), "nothing raised");
      ExpectModes(modes, First(exact, count), scale);
    }
    struct {
      double from, to;
    } const intervals[] = {{-100, 2000}, {-100, -40}, {2, 6.9}, {0.9, 1.1}, {6.9, 7.1}, {7, 60}, {-4, 10}};
    for (auto const& [from, to] : intervals) {
      EXPECT_EQ(Raised([&, from = from, to = to] { modes.FindBetween(Hertz(from), Hertz(to)); }),
                "nothing raised");
      ExpectModes(modes, Between(exact, from, to), scale);
    }
    for (double const at : {-4.0, 0.0, 1.0, 7.0, 100.0}) { // but for the last exactly an eigenvalue
      EXPECT_EQ(Raised([&] { modes.FindNear(Hertz(at), 12); }), "nothing raised");
      std::vector<double> nearest = exact;
      std::ranges::stable_sort(nearest, {}, [&](double value) { return std::abs(value - at); });
      nearest.resize(12);
      std::ranges::sort(nearest);
      ExpectModes(modes, nearest, scale);
    }
  }
}

TEST(Spectrum, WithNegativeMassIsNeverTakenForOneWithout) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::vector<double> lambda, mass(150, 1.0);
    for (int k = 0; k < 150; ++k)
      lambda.push_back(1 + k);
    mass[seed] = -1e-3 * seed;
    Planted const pair(lambda, mass, seed);
    ORXSrvModes modes(pair.k, pair.m);
    std::string const lowest = Raised([&] { modes.FindLowest(5); }).substr(0, 3);
    EXPECT_TRUE(lowest == "405" || lowest == "406") << seed << ": " << lowest;
  }
}

TEST(Spectrum, StopsInEveryPhaseAndBeginsAnew) {
  WorkingFolder const folder;
  Line const line{16, true};
  Box const box({line, line, Line{2, false}});
  auto const find = [&](ORXSrvModes& modes) { modes.FindBetween(Hertz(15), Hertz(1500)); };
  ORXSrvModes modes(box.k, box.m);
  modes.SetFolder(".");
  std::map<std::string, std::size_t> phases; // and the last report of each
  {
    Recording const all;
    find(modes);
    for (std::size_t at = 0; at < all.Reported().size(); ++at)
      phases[all.Reported()[at]] = at;
  }
  EXPECT_EQ(phases.size(), 3u);
  std::vector<ORXSrvMode> const expected = modes.Modes();
  EXPECT_GT(expected.size(), 20u);
  for (auto const& [phase, at] : phases) {
    ORXSrvModes stopped(box.k, box.m);
    {
      Recording const stop(at);
      EXPECT_EQ(Raised([&] { find(stopped); }).substr(0, 4), "301 ");
    }
    EXPECT_TRUE(stopped.Modes().empty());
    EXPECT_FALSE(stopped.IsCertified());
    find(stopped);
    ASSERT_EQ(stopped.Modes().size(), expected.size());
    for (std::size_t k = 0; k < expected.size(); ++k)
      EXPECT_EQ(stopped.Modes()[k].eigenvalue, expected[k].eigenvalue);
  }
  EXPECT_TRUE(folder.Files().empty());
}
