#include "DatabaseSupport.h"

#include <cerrno>
#include <numeric>
#include <optional>

// One session, run again and again; each time another one of its system calls on the file, or of its
// allocations, fails once. The process must live, the failure have the right code, and a model that knows
// which commits reported success agree with every cell, in the session and after opening the file again.

namespace {

/// While it lives, allocations are counted, and one of them fails.
struct FailingAllocation : Uncopied {
  FailingAllocation() { s_isCounting = true; }
  ~FailingAllocation() { s_isCounting = false; }

  static void* Allocate(std::size_t bytes) {
    bool const isDue = s_isCounting && s_countdown >= 0 && s_countdown-- == 0;
    void* const block = isDue ? nullptr : std::malloc(bytes > 0 ? bytes : 1);
    if (block == nullptr) throw std::bad_alloc();
    return block;
  }

  static inline bool s_isCounting = false;
  static inline std::int64_t s_countdown = -1; ///< 0: the next one fails; negative: none
};

} // namespace

// Not inlined: g++ 12 takes what is left of a pair, such as new and free, for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t bytes) { return FailingAllocation::Allocate(bytes); }
[[gnu::noinline]] void* operator new[](std::size_t bytes) { return FailingAllocation::Allocate(bytes); }
[[gnu::noinline]] void* operator new(std::size_t bytes, std::nothrow_t const&) noexcept {
  try {
    return FailingAllocation::Allocate(bytes);
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}
[[gnu::noinline]] void* operator new[](std::size_t bytes, std::nothrow_t const& tag) noexcept {
  return operator new(bytes, tag);
}
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace {

/// A field: its cells, and for one of them a second value that a failed write may have left.
struct Field {
  std::vector<double> cells;
  double fill;            ///< of cells that an extension adds
  std::set<double> first; ///< allowed for cell 0
};

class FaultSession {
public:
  explicit FaultSession(std::string const& path) : m_path(path) {}

  /// Everything; afterwards the file is closed.
  void Run() {
    if (!Try([&] { Create(*m_database, m_path); }) ||
        !Try([&] { m_context = m_database->CreateContext({}); }))
      return;
    for (int round = 0; round < 5; ++round) {
      Round(round);
      ChangeInPlace(round);
      ExpectCells("in the session");
      if (round == 2 && Try([&] { m_database->Close(); })) Reopen();
    }
    if (!Try([&] { m_database->Close(); })) Try([&] { m_database->Close(); });
  }
  /// Drops what is open, and compares what the file holds.
  void Check() {
    if (m_fields.empty() && !std::filesystem::exists(m_path)) return;
    m_database.emplace();
    m_isStrict = true; // and counts no allocations
    Open(*m_database, m_path);
    if (!m_fields.empty()) m_context = m_database->Contexts()[0];
    if (!m_fields.empty()) ExpectCells("after reopening");
  }
  std::string const& Faults() const { return m_faults; }

private:
  /// Runs a step; false when it raised what a fault may raise.
  template<class Step>
  bool Try(Step&& step) {
    try {
      FailingAllocation const counting;
      step();
      return true;
    } catch (std::bad_alloc const&) {
      return false;
    } catch (ORXSimException const& e) {
      bool const isRight =
          e.Code() == ORXSimException::writeFailed || e.Code() == ORXSimException::readFailed;
      if (!isRight) m_faults.append(" code ").append(std::to_string(e.Code())).append(e.AsString().AsText());
    }
    return false;
  }
  void Reopen() {
    for (int k = 0; k < 2 && !m_database->IsOpen(); ++k)
      if (Try([&] { Open(*m_database, m_path); })) m_context = m_database->Contexts()[0];
  }
  void Round(int round) {
    if (!m_database->IsOpen()) return;
    std::vector<Field> after = m_fields;
    Try([&] {
      ORXSimContext const context(m_context);
      ORXSimTransaction transaction(m_context);
      ORXSimDistributionID const field = CreateField(context, {2, 3 + 40 * round});
      CreateDrawer(field, round % 2 == 0 ? std::vector<int>{1, 2} : std::vector<int>{}, round);
      std::vector<double> cells(2 * (3 + 40 * round));
      std::iota(cells.begin(), cells.end(), 1000.0 * round);
      WriteCells(field, cells);
      after.push_back({.cells = cells, .fill = 1.0 * round, .first = {cells[0]}});
      if (after.size() >= 2) {
        std::size_t const older = after.size() - 2;
        Extend(context.Distributions()[static_cast<int>(older)], 0, 1);
        after[older].cells.resize(after[older].cells.size() / 2 * 3, after[older].fill);
      }
      transaction.Commit();
      m_fields.swap(after);
    });
  }
  void ChangeInPlace(int round) {
    if (m_fields.empty() || !m_database->IsOpen()) return;
    double const value = -1.0 - round;
    Field& field = m_fields.front();
    bool const isDone = Try([&] { WriteCells(FieldIn(*m_database), {value}, {{0, 0}, {0, 0}}); });
    if (isDone) field.first.clear();
    field.first.insert(value);
  }
  void ExpectCells(char const* when) {
    if (!m_database->IsOpen()) return;
    std::vector<std::vector<double>> found;
    auto const read = [&] {
      auto const fields = ORXSimContext(m_context).Distributions();
      found.clear();
      for (int k = 0; k < fields.Size(); ++k)
        found.push_back(CellsOf(fields[k]));
    };
    if (m_isStrict) {
      read();
    } else if (!Try(read) && !Try(read)) {
      m_faults.append(" cells cannot be read ").append(when);
      return;
    }
    if (found.size() != m_fields.size())
      m_faults.append(" other fields ").append(when).append(": ").append(std::to_string(found.size()));
    for (std::size_t k = 0; k < std::min(found.size(), m_fields.size()); ++k)
      Compare(m_fields[k], found[k], k, when);
  }
  void Compare(Field const& expected, std::vector<double> const& found, std::size_t number,
               char const* when) {
    bool isSame = found.size() == expected.cells.size() && expected.first.contains(found[0]);
    for (std::size_t k = 1; isSame && k < found.size(); ++k)
      isSame = found[k] == expected.cells[k];
    if (!isSame) m_faults.append(" wrong field ").append(std::to_string(number)).append(" ").append(when);
  }

  std::string m_path;
  std::optional<ORXSimDatabase> m_database{std::in_place};
  ORXSimContextID m_context;
  std::vector<Field> m_fields; ///< that were committed
  bool m_isStrict = false;
  std::string m_faults;
};

/// Runs the session with one fault; what was wrong.
template<class Fault>
std::string RunWith(std::string const& path, Fault&& fault) {
  std::filesystem::remove(path);
  FaultSession session(path);
  fault(session);
  std::string const failure = FailureOf([&] { session.Check(); });
  return session.Faults() + (failure.empty() ? "" : " reopening failed: " + failure);
}

TEST(Faults, OfEachSystemCallAreSurvived) {
  TemporaryFolder const folder(memoryFolder);
  std::string const path = folder.Path("a.sim");
  for (int const error : {EIO, ENOSPC}) {
    int steps = 0;
    for (int nth = 1, count = 1; nth <= count; ++nth) {
      std::string const wrong = RunWith(path, [&](FaultSession& session) {
        FaultPlan const plan(FaultPlan::Effect::FailOnce, nth, error, IsAnyStep);
        session.Run();
        steps = plan.Steps();
      });
      count = std::max(count, nth == 1 ? steps : count);
      EXPECT_EQ(wrong, "") << "step " << nth << ", error " << error;
    }
    EXPECT_GT(steps, 100);
  }
}

TEST(Faults, OfAllocationsAreSurvived) {
  TemporaryFolder const folder(memoryFolder);
  std::string const path = folder.Path("a.sim");
  int const stride = Setting("ORX_FAULT_STRIDE", isSanitized ? 211 : 61);
  std::int64_t nth = 0;
  for (; FailingAllocation::s_countdown < 0; nth += stride) {
    std::string const wrong = RunWith(path, [&](FaultSession& session) {
      FailingAllocation::s_countdown = nth;
      session.Run();
    });
    EXPECT_EQ(wrong, "") << "allocation " << nth;
  }
  FailingAllocation::s_countdown = -1;
  EXPECT_GT(nth, 1000) << "allocations were counted";
}

} // namespace
