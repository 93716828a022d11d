#include "DatabaseSupport.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/resource.h>
#include <sys/time.h>

// Damaged files are opened, walked and read in a child process, in little memory and time. What comes
// back is an ORXSimException or a right answer: never a signal, never no end. Cells of dense drawers have no
// checksum, so a damaged cell is read as it is; the test knows where they lie.

namespace {

/// A signal ends the process after so many seconds of work from now on: what ends on a busy machine, too, is
/// no fault.
void LimitProcessorTime(int seconds) {
  itimerval const limit{.it_interval = {}, .it_value = {.tv_sec = seconds, .tv_usec = 0}};
  setitimer(ITIMER_PROF, &limit, nullptr);
}

constexpr char cellMark = 'Q'; ///< dense cells are made of this byte, so that they are found in the file

double MarkedCell() {
  double cell = 0.0;
  std::memset(&cell, cellMark, sizeof cell);
  return cell;
}

void WriteSample(std::string const& path) {
  ORXSimDatabase database;
  Create(database, path);
  ORXSimContext const context(database.CreateContext({}));
  context.DefineType("shapes");
  ORXSimDistributionID const chunked = CreateField(context, {20, 30});
  CreateDrawer(chunked, {7, 30}, MarkedCell());
  ORXSimDistributionID const whole = CreateField(context, {40, 40, 2});
  CreateDrawer(whole, {}, MarkedCell());
  ORXSimCollectionID const rows = context.CreateCollection(50, {});
  ORXSimDistribution const symmetric(
      context.CreateDistribution(ORXSimGrid({ORXSimCollection(rows).CreateColorVariant(1), rows}),
                                 ORXSimRangeType(ORXSimTypeKey::Double), {}));
  ORXSimTransfer transfer(symmetric);
  transfer.SetMakeNewDrawerChunked(Numbers({20, 20})).SetWrite();
  transfer.SetSerialization(ORXSimSerializationType().SetDenseSym())
      .SetInitializationValue(ORXSimRangeValue(MarkedCell(), -1, ORXSimTypeKey::Double))
      .InitializePersistentDrawer();
  Extend(symmetric.ID(), 0, 20);
  // Many pieces: the tree that says where they are has no checksum of HDF5's.
  ORXSimDistributionID const grown = CreateField(context, {0});
  CreateDrawer(grown, {}, MarkedCell());
  Extend(grown, 0, 100);
  std::vector<int> labels(20000);
  for (std::size_t k = 0; k < labels.size(); ++k)
    labels[k] = static_cast<int>(k * k % 100003);
  ORXSimCollection(context.CreateCollection(0, {})).CreateOrderedCSet(labels.data(), 20000);
  int const few[] = {9, 1, 4};
  ORXSimCollection(context.CreateCollection(3, {})).CreateOrderedCSet(few, 3);
  WriteSparse(CreateField(context, {3, 3}), {5, 7, 9}, {0, 1, 2}, {0, 2, 2, 3});
  database.Close();
}

/// Everything that the interface tells of a file, as text; dense cells as the number that are not marked.
std::string Walk(std::string const& path, bool readOnly) {
  ORXSimDatabase database;
  Open(database, path, readOnly);
  std::string text;
  auto const add = [&text](std::string const& part) { text += part + "\n"; };
  for (ORXSimContextID const& id : database.Contexts()) {
    ORXSimContext const context(id);
    add("types " + std::to_string(context.Schema().Size()));
    for (int k = 0; k < context.Schema().Size(); ++k)
      add(context.Schema().Name(k).AsText());
    for (ORXSimCollectionID const& collection : context.Collections())
      for (int const label : Members(ORXSimCollection(collection).BiggestCSetID()))
        add(std::to_string(label));
    for (ORXSimDistributionID const& field : context.Distributions()) {
      ORXSimPersistentDrawerDesc const drawer = DrawerOf(field);
      for (int dim = 0; dim < drawer.NumDimensions(); ++dim)
        for (int const label : Members(drawer.DimensionCSetID(dim)))
          add(std::to_string(label));
      for (int const length : drawer.ChunkSizes())
        add("chunk " + std::to_string(length));
      if (!drawer.Serialization().IsSparse()) {
        std::vector<double> const cells = CellsOf(field);
        auto const other =
            std::count_if(cells.begin(), cells.end(), [](double cell) { return cell != MarkedCell(); });
        // A damaged byte is in one cell, a damaged run of bytes in two; these may have mirror images.
        auto const most = drawer.Serialization().IsDenseSym() ? 4 : 2;
        add("cells " + std::to_string(cells.size()) + (other > most ? ", others" : ""));
        continue;
      }
      std::vector<double> values(drawer.DataSizeItems(0));
      std::vector<int> starts(drawer.DataSizeItems(2));
      ORXSimTransfer transfer = TransferOf(field).SetRead().SetSerialization(drawer.Serialization());
      Lend(Lend(transfer, 0, values), 2, starts).ExecRead();
      for (double const value : values)
        add(std::to_string(value));
      for (int const start : starts)
        add(std::to_string(start));
    }
  }
  return text;
}

enum Outcome : int { Right = 0, Refused = 1, Wrong = 2, OtherException = 3 };

int OutcomeOf(std::string const& path, bool readOnly, std::string const& expected) {
  try {
    return Walk(path, readOnly) == expected ? Right : Wrong;
  } catch (ORXSimException const&) {
    return Refused;
  } catch (std::bad_alloc const&) {
    return Refused; // a size that no memory has
  } catch (...) {
    return OtherException;
  }
}

/// Counts of outcomes; signals and what does not end are in `lost`.
struct Tally {
  int right = 0, refused = 0;
  std::string lost;
};

/// Tries damaged copies of a file, many to a child; `damage(k, bytes)` makes the k-th.
Tally TryDamaged(std::string const& original, std::string const& expected, int copies,
                 std::function<void(int, std::string&)> const& damage) {
  TemporaryFolder const folder(memoryFolder);
  constexpr int copiesAChild = 100;
  Tally tally;
  for (int first = 0; first < copies; first += copiesAChild) {
    std::string const log = folder.Path("log");
    WriteWhole(log, "");
    int const end = RunInChild([&] {
      if (!isSanitized) {
        rlimit const memory{.rlim_cur = std::uint64_t{4} << 30, .rlim_max = std::uint64_t{4} << 30};
        setrlimit(RLIMIT_AS, &memory);
      }
      std::string outcomes;
      for (int k = first; k < std::min(first + copiesAChild, copies); ++k) {
        LimitProcessorTime(20);
        std::string bytes = original;
        damage(k, bytes);
        WriteWhole(folder.Path("b.sim"), bytes);
        outcomes += static_cast<char>('0' + OutcomeOf(folder.Path("b.sim"), k % 4 != 0, expected));
        WriteWhole(log, outcomes);
      }
      return 0;
    });
    std::string const outcomes = ReadWhole(log);
    for (std::size_t k = 0; k < outcomes.size(); ++k) {
      int const outcome = outcomes[k] - '0';
      tally.right += outcome == Right ? 1 : 0;
      tally.refused += outcome == Refused ? 1 : 0;
      if (outcome > Refused)
        tally.lost += " copy " + std::to_string(first + static_cast<int>(k)) + ": " + std::to_string(outcome);
    }
    if (end != 0)
      tally.lost += " copy " + std::to_string(first + static_cast<int>(outcomes.size())) + ": ended with " +
                    std::to_string(end);
  }
  return tally;
}

class Damage : public testing::Test {
protected:
  Damage() {
    WriteSample(m_folder.Path("a.sim"));
    m_original = ReadWhole(m_folder.Path("a.sim"));
    m_expected = Walk(m_folder.Path("a.sim"), true);
  }

  TemporaryFolder m_folder;
  std::string m_original, m_expected;
};

TEST_F(Damage, TruncatedFilesAreRefused) {
  int const cuts = static_cast<int>(m_original.size() / 512);
  Tally const tally =
      TryDamaged(m_original, m_expected, cuts, [&](int k, std::string& bytes) { bytes.resize(k * 512); });
  EXPECT_EQ(tally.lost, "");
  EXPECT_EQ(tally.refused, cuts);
}

TEST_F(Damage, FlippedBytesAreNoticedOrDoNoHarm) {
  int const copies = Setting("ORX_DAMAGED_COPIES", isSanitized ? 300 : 1000);
  int const squares[] = {0, 1, 4, 9, 16};
  std::size_t const labels = m_original.find(std::string(reinterpret_cast<char const*>(squares), 20));
  ASSERT_NE(labels, std::string::npos);
  // Cells and the long list of labels are left to the few that hit them.
  auto const isStructure = [&](std::size_t at) {
    return m_original[at] != cellMark && (at < labels || at >= labels + 80000);
  };
  Tally const tally = TryDamaged(m_original, m_expected, copies, [&](int k, std::string& bytes) {
    std::mt19937 random(static_cast<unsigned>(k));
    std::size_t at = 0;
    do {
      at = std::uniform_int_distribution<std::size_t>(0, bytes.size() - 8)(random);
    } while (!isStructure(at) && k % 10 != 0);
    if (k % 5 > 1) {
      bytes[at] = static_cast<char>(k % 5 == 2 ? random() : bytes[at] ^ (1u << (random() % 8)));
    } else {
      std::uint64_t const words[] = {0, ~0ull, 0x8080808080808080, random(), 1ull << 31, 1ull << 63};
      at = at / 4 * 4;
      std::memcpy(&bytes[at], &words[random() % 6], 8);
    }
  });
  EXPECT_EQ(tally.lost, "");
  EXPECT_GT(tally.refused, copies / 4);
  std::printf("%d damaged copies: %d refused, %d right\n", copies, tally.refused, tally.right);
}

/// Opens a damaged copy for writing, reads and changes what it can, and ends the process with all that is
/// done then; never a signal, and not a word from HDF5.
int WorkToTheEnd(std::string const& path, std::string const& messages) {
  int const file = open(messages.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  dup2(file, STDERR_FILENO);
  LimitProcessorTime(20);
  try {
    Walk(path, false);
    ORXSimDatabase database;
    Open(database, path);
    ORXSimTransaction transaction(database.Contexts()[0]);
    CreateDrawer(CreateField(ORXSimContext(database.Contexts()[0]), {3}), {});
    transaction.Commit();
  } catch (ORXSimException const&) {
    std::exit(0);
  }
  std::exit(0);
}

TEST_F(Damage, DoesNotShowAtTheEndOfTheProcess) {
  // The first bytes are the root group's, which all work meets. 1 tries every byte.
  std::size_t const stride = Setting("ORX_DAMAGE_STRIDE", isSanitized ? 9001 : 3001);
  std::string const path = m_folder.Path("b.sim"), messages = m_folder.Path("messages");
  for (std::size_t at = 8; at < m_original.size();
       at += at < 256 ? std::min<std::size_t>(16, stride) : stride) {
    std::string bytes = m_original;
    bytes[at] = static_cast<char>(bytes[at] ^ 0x41);
    WriteWhole(path, bytes);
    EXPECT_EQ(RunInChild([&] { return WorkToTheEnd(path, messages); }), 0) << "byte " << at;
    EXPECT_EQ(ReadWhole(messages), "") << "byte " << at;
  }
}

TEST_F(Damage, ForeignFilesAreRefused) {
  std::string const path = m_folder.Path("b.sim");
  for (std::string const& bytes : {std::string(), std::string("a text"), std::string(5000, 'x')}) {
    WriteWhole(path, bytes);
    for (bool const readOnly : {true, false}) {
      ORXSimDatabase database;
      EXPECT_CODE(damaged, Open(database, path, readOnly));
      EXPECT_FALSE(database.IsOpen());
      EXPECT_EQ(ReadWhole(path), bytes);
    }
  }
  ORXSimDatabase database;
  std::string text;
  EXPECT_EQ(CodeOf([&] { Open(database, m_folder.Path("missing.sim")); }, &text), ORXSimException::notOpened);
  EXPECT_NE(text.find("missing.sim"), std::string::npos) << text;
  EXPECT_CODE(notOpened, Open(database, m_folder.Path("")));
  EXPECT_CODE(notOpened, Create(database, m_folder.Path("no/such/folder.sim")));
}

} // namespace
