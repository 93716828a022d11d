#include "DatabaseSupport.h"

#include <sys/resource.h>

// A disk that is full is an error at the call that needs the space; nothing is lost, and once there is space
// the same calls succeed.

namespace {

std::vector<double> const cells{1, 2, 3, 4, 5, 6};

/// A committed field of 3 x 2 cells.
ORXSimContext WithAField(ORXSimDatabase& database, std::string const& path) {
  Create(database, path);
  ORXSimContext const context(database.CreateContext({}));
  ORXSimDistributionID const field = CreateField(context, {3, 2});
  CreateDrawer(field, {2, 2});
  WriteCells(field, cells);
  ORXSimTransaction(context.ID()).Commit();
  return context;
}

/// Creates fields until that fails; their number with the one that has no drawer.
int CreateFieldsUntilFull(ORXSimContext const& context, char const* expectedText) {
  std::string text;
  int code = 0, fields = 0;
  for (; code == 0 && fields < 1000; ++fields)
    code = CodeOf([&] { CreateDrawer(CreateField(context, {256, 256}), {}); }, &text);
  EXPECT_EQ(code, ORXSimException::writeFailed);
  EXPECT_NE(text.find(expectedText), std::string::npos) << text;
  return fields;
}

/// Structure that fits nowhere.
void CreateManyCollections(ORXSimContext const& context) {
  for (int k = 0; k < 60000; ++k)
    context.CreateCollection(k, {});
}

void FillInATransaction(std::string const& path, std::function<void()> const& makeRoom) {
  ORXSimDatabase database;
  ORXSimContext const context = WithAField(database, path);
  ORXSimTransaction transaction(context.ID());
  int const fields = CreateFieldsUntilFull(context, "a.sim");
  EXPECT_CODE(writeFailed, Extend(context.Distributions()[0], 0, 100000));
  EXPECT_EQ(CellsOf(context.Distributions()[0]), cells);
  CreateManyCollections(context);
  for (int attempt = 0; attempt < 2; ++attempt)
    EXPECT_CODE(writeFailed, transaction.Commit());
  makeRoom();
  EXPECT_EQ(CodeOf([&] { transaction.Commit(); }), 0) << "once there is space";
  EXPECT_EQ(CodeOf([&] { database.Close(); }), 0);

  Open(database, path, true);
  ORXSimContext const there(database.Contexts()[0]);
  EXPECT_EQ(there.Distributions().Size(), 1 + fields);
  EXPECT_EQ(CellsOf(there.Distributions()[0]), cells);
}

TEST(FullDisk, IsAnErrorAtTheCallAndLosesNothing) {
  SmallDisk const disk(8 << 20);
  if (!disk.IsMounted()) GTEST_SKIP() << "mounting a small file system is not permitted";
  disk.Fill(6 << 20);
  std::string const path = disk.Path("a.sim");
  ORXSimDatabase database;
  ORXSimContext const context = WithAField(database, path);
  CreateFieldsUntilFull(context, "bytes are free");
  CreateManyCollections(context);
  EXPECT_CODE(writeFailed, database.Close());
  ASSERT_TRUE(database.IsOpen());
  TemporaryFolder const elsewhere;
  std::filesystem::copy_file(path, elsewhere.Path("a.sim"));
  std::filesystem::remove(disk.Path("filler"));
  EXPECT_EQ(CodeOf([&] { database.Close(); }), 0) << "once there is space";

  ORXSimDatabase copy;
  Open(copy, elsewhere.Path("a.sim"));
  ORXSimContext const inCopy(copy.Contexts()[0]);
  EXPECT_EQ(inCopy.Distributions().Size(), 1) << "what a crash on the full disk leaves";
  EXPECT_EQ(CellsOf(inCopy.Distributions()[0]), cells);
  Open(database, path);
  ORXSimContext const there(database.Contexts()[0]);
  EXPECT_GT(there.Collections().Size(), 60000);
  EXPECT_EQ(CellsOf(there.Distributions()[0]), cells);
}

TEST(FullDisk, AFileSizeLimitIsOneToo) {
  TemporaryFolder const folder;
  auto const limit = [](rlim_t bytes) {
    rlimit const limits{.rlim_cur = bytes, .rlim_max = RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limits);
  };
  int const failures = RunInChild([&] {
    limit(4 << 20);
    FillInATransaction(folder.Path("a.sim"), [&] { limit(64 << 20); });
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(failures, 0);
}

} // namespace
