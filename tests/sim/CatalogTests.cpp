#include "DatabaseSupport.h"

#include <memory>
#include <optional>

// The catalogue of a file in long and large use: what is written, what is kept, what it costs.

namespace {

class Catalog : public testing::Test {
protected:
  Catalog() {
    Create(m_database, Path());
    m_context = m_database.CreateContext({});
  }
  std::string Path() const { return m_folder.Path("a.sim"); }
  ORXSimContext Context() const { return ORXSimContext(m_context); }
  ORXSimCollection NewCollection(int size) const {
    return ORXSimCollection(Context().CreateCollection(size, {}));
  }
  void Reopen(bool readOnly = false) {
    m_database.Close();
    Open(m_database, Path(), readOnly);
    m_context = m_database.Contexts()[0];
  }

  TemporaryFolder m_folder;
  ORXSimDatabase m_database;
  ORXSimContextID m_context;
};

// HDF5 keeps about 2 MB of structure in memory and reads the rest again when it is needed; objects that wait
// for their commit must survive that.
TEST_F(Catalog, ManyNewDrawersKeepTheirCells) {
  ORXSimCollection const labels = NewCollection(0);
  std::vector<double> expected;
  auto const addDrawers = [&](int count) {
    for (int k = 0; k < count; ++k) {
      ORXSimDistributionID const field = CreateField(Context(), {8, 8});
      CreateDrawer(field, {});
      WriteCells(field, std::vector<double>(64, static_cast<double>(expected.size())));
      expected.push_back(static_cast<double>(expected.size()));
    }
  };
  auto const expectCells = [&](char const* when) {
    auto const fields = Context().Distributions();
    ASSERT_EQ(fields.Size(), static_cast<int>(expected.size())) << when;
    for (std::size_t k = 0; k < expected.size(); ++k)
      ASSERT_EQ(CellsOf(fields[static_cast<int>(k)]), std::vector<double>(64, expected[k])) << when << k;
  };
  for (auto const& [drawers, sets, isCommitted] : {std::tuple{1, 4000, true}, std::tuple{1000, 0, true},
                                                   std::tuple{50, 0, false}, std::tuple{50, 0, true}}) {
    std::optional<ORXSimTransaction> transaction(m_context);
    std::size_t const former = expected.size();
    addDrawers(drawers);
    for (int k = 0; k < sets; ++k) {
      int const pair[] = {k, k + 5000};
      labels.CreateOrderedCSet(pair, 2);
    }
    expectCells("before the commit ");
    if (isCommitted) transaction->Commit();
    transaction.reset();
    if (!isCommitted) expected.resize(former);
    expectCells("after the transaction ");
  }
  Reopen();
  expectCells("reopened ");
}

} // namespace
