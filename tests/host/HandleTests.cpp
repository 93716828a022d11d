#include "host/orx_linear_algebra.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string LastError() {
  int const length = 400;
  char text[400];
  ORXSRVLASTERROR(text, &length);
  return text;
}

/// One object of each kind, and arrays that are long enough for any call that is refused.
struct Good {
  orx_handle handle = 0; ///< to be deleted
  orx_database database = 0;
  orx_registry registry = 0;
  orx_block_matrix block_matrix = 0;
  orx_sparse_matrix sparse_matrix = 0;
  orx_factor factor = 0;
  orx_modes modes = 0;
  void* address = nullptr;
  int ints[64] = {1};
  std::int64_t int64_ts[64] = {1};
  double doubles[64] = {1.0};
  int const* int_pointer = nullptr;
  double const* double_pointer = nullptr;
  char const* text = "a";

  Good() {
    int stat = 0;
    ORX_START(&stat);
    ORX_DATABASE_CREATE("good.sim", ints, &database, &stat);
    ORX_REGISTRY_CREATE(&registry, &stat);
    ORX_REGISTRY_ADDRESS(&registry, &address, &stat);
    ORX_BLOCK_CREATE(ints, ints, ints, ints, &block_matrix, &stat);
    ORX_SPARSE_CREATE(ints, ints, &sparse_matrix, &stat);
    ORX_SPARSE_ADD(&sparse_matrix, ints, ints, doubles, &stat);
    ORX_SPARSE_END(&sparse_matrix, &stat);
    ORX_FACTOR_CREATE(&factor, &stat);
    ORX_MODES_CREATE(&sparse_matrix, &sparse_matrix, &modes, &stat);
    EXPECT_EQ(stat, 0) << LastError();
    ORX_SPARSE_CREATE(ints, ints, &handle, &stat);
  }
  /// All handles with the names of their kinds.
  std::map<std::string, std::int64_t> Handles() const {
    return {{"database", database},           {"registry", registry}, {"block_matrix", block_matrix},
            {"sparse_matrix", sparse_matrix}, {"factor", factor},     {"modes", modes}};
  }
  Good(Good const&) = delete;
  Good& operator=(Good const&) = delete;
  ~Good() { ORX_STOP(nullptr); }
};

struct ArgumentCase {
  char const* entryPoint;
  char const* argument;
  char const* kind; ///< of the handle; null for what is no handle
  void (*call)(Good& good, orx_handle* handle, int* stat);
};

constexpr ArgumentCase cases[] = {
#include "host/arguments.inc"
};

class Handles : public testing::Test {
protected:
  /// The call is refused with an error that names function and argument, and changes no handle.
  void ExpectRefused(ArgumentCase const& tried, orx_handle* handle, int error) {
    int stat = -7;
    orx_handle const before = handle != nullptr ? *handle : 0;
    tried.call(m_good, handle, &stat);
    EXPECT_EQ(stat, error) << tried.entryPoint;
    std::string const beginning = std::string(tried.entryPoint) + ": " + tried.argument + " is ";
    EXPECT_TRUE(LastError().starts_with(beginning)) << beginning << "\n" << LastError();
    EXPECT_EQ(handle != nullptr ? *handle : 0, before);
  }
  int CountObjects() {
    int count = 0;
    ORX_COUNT_OBJECTS(&count, nullptr);
    return count;
  }

  WorkingFolder m_folder; // goes last
  Good m_good;
};

TEST_F(Handles, NoArgumentMayBeNull) {
  int const objects = CountObjects();
  for (ArgumentCase const& tried : cases)
    ExpectRefused(tried, nullptr, 502);
  EXPECT_EQ(CountObjects(), objects);
  EXPECT_GT(std::size(cases), 150U);
}

TEST_F(Handles, WhatStandsForNoObjectOfItsKindIsRefused) {
  orx_handle const former = m_good.handle;
  ORX_DELETE(&m_good.handle, nullptr);
  EXPECT_EQ(m_good.handle, 0);
  ORX_SPARSE_CREATE(m_good.ints, m_good.ints, &m_good.handle, nullptr);
  EXPECT_NE(m_good.handle, former); // in the place of the former
  constexpr std::int64_t generation = std::int64_t{1} << 32;
  std::vector<std::int64_t> bad{0,
                                1,
                                17,
                                -1,
                                INT64_MAX,
                                INT64_MIN,
                                former,
                                m_good.factor + generation,
                                m_good.factor + 1000,
                                m_good.factor - generation,
                                reinterpret_cast<std::intptr_t>(&m_good)};
  std::mt19937_64 generator(1);
  for (int k = 0; k < 200; ++k)
    bad.push_back(static_cast<std::int64_t>(generator()));
  for (ArgumentCase const& tried : cases) {
    if (tried.kind == nullptr) continue;
    for (std::int64_t handle : bad)
      ExpectRefused(tried, &handle, 501);
    for (auto [kind, handle] : m_good.Handles())
      if (kind != tried.kind && tried.kind != std::string("handle")) ExpectRefused(tried, &handle, 501);
  }
}

TEST_F(Handles, TellWhatWasFound) {
  int stat = 0;
  orx_handle modes = m_good.modes, gone = m_good.handle;
  ORX_DELETE(&m_good.handle, &stat);
  ORX_SPARSE_END(&modes, &stat);
  EXPECT_EQ(LastError(), "ORX_SPARSE_END: matrix is a handle of modes; expected one of a sparse matrix.");
  ORX_SPARSE_END(&gone, &stat);
  EXPECT_EQ(LastError(),
            "ORX_SPARSE_END: matrix is a handle of an object that was deleted; expected one of a "
            "sparse matrix.");
  gone = 17;
  ORX_DELETE(&gone, &stat);
  EXPECT_EQ(LastError(), "ORX_DELETE: object is 17, which is no handle; expected one of an object.");
}

TEST_F(Handles, ManyObjectsComeAndGo) {
  std::mt19937 generator(3);
  std::vector<orx_handle> alive, dead;
  for (int step = 0; step < 20000; ++step) {
    int stat = 0;
    if (alive.empty() || generator() % 3 != 0) {
      alive.push_back(0);
      ORX_SPARSE_CREATE(m_good.ints, m_good.ints, &alive.back(), &stat);
      ASSERT_EQ(stat, 0);
    } else {
      std::swap(alive[generator() % alive.size()], alive.back());
      dead.push_back(alive.back());
      ORX_DELETE(&alive.back(), &stat);
      ASSERT_EQ(stat, 0);
      alive.pop_back();
    }
    int const wrong = dead.empty() ? 0 : 501;
    if (!dead.empty()) ORX_SPARSE_END(&dead[generator() % dead.size()], &stat);
    ASSERT_EQ(stat, wrong);
    if (!alive.empty()) ORX_SPARSE_END(&alive[generator() % alive.size()], &stat);
    ASSERT_EQ(stat, alive.empty() ? wrong : 0);
  }
  EXPECT_EQ(CountObjects(), static_cast<int>(alive.size()) + 7);
}

/// All calls with handles in any order, on objects in any state: deleted, empty, closed, not assembled.
TEST_F(Handles, SurviveAnyOrderOfCalls) {
  std::mt19937 generator(5);
  std::vector<orx_handle> seen;
  auto const any = [&](auto const& list) { return list[generator() % std::size(list)]; };
  int done = 0;
  int const steps = 10000;
  for (int step = 0; step < steps; ++step) {
    auto const good = m_good.Handles();
    for (auto const& [kind, handle] : good)
      if (std::ranges::find(seen, handle) == seen.end()) seen.push_back(handle);
    if (seen.size() > 60) seen.erase(seen.begin(), seen.begin() + 30);
    std::ranges::fill(m_good.ints, 1 + static_cast<int>(generator() % 3));
    std::ranges::fill(m_good.doubles, static_cast<double>(generator() % 7) - 1.0);
    if (step % 100 == 0) ORX_FACTOR_CREATE(&m_good.factor, nullptr);
    if (step % 100 == 50) ORX_REGISTRY_CREATE(&m_good.registry, nullptr);
    if (step % 30 == 0) ORX_SPARSE_CREATE(m_good.ints, m_good.ints, &m_good.sparse_matrix, nullptr);
    if (step % 50 == 0)
      ORX_BLOCK_CREATE(m_good.ints, m_good.ints, m_good.ints, m_good.ints, &m_good.block_matrix, nullptr);
    ArgumentCase const& tried = any(cases);
    if (tried.kind == nullptr || (tried.kind == std::string("handle") && step % 4 != 0)) continue;
    auto const own = good.find(tried.kind);
    orx_handle handle = own != good.end() && step % 3 != 0 ? own->second : any(seen);
    int stat = -7;
    tried.call(m_good, &handle, &stat);
    ASSERT_NE(stat, -7) << tried.entryPoint;
    done += stat == 0 ? 1 : 0;
  }
  EXPECT_GT(done, steps / 20);
}

} // namespace
