#include "Hdf5Support.h"
#include "StoreSupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

using orx::store::CheckedId;
using orx::store::Hdf5Id;

/// A dataset of 512 KiB, whose space HDF5 takes when it is written.
void AddDataset(Session const& session, int number) {
  orx::store::QuietErrors const quiet;
  hsize_t const cells = 65536;
  std::vector<double> const values(cells, number);
  std::string const name = std::string("big") + std::to_string(number);
  Hdf5Id const space = CheckedId(H5Screate_simple(1, &cells, nullptr), name);
  Hdf5Id const dataset = CheckedId(H5Dcreate2(session.Id(), name.c_str(), H5T_IEEE_F64LE, space.Get(),
                                              H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                                   name);
  orx::store::Checked(
      H5Dwrite(dataset.Get(), H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), name);
}

/// Adds datasets until there is no space; the error that said so.
int FillUp(Session const& session) {
  try {
    for (int number = 0; number < 100; ++number)
      AddDataset(session, number);
  } catch (orx::store::Hdf5Failure const&) {
    auto const failure = session.Failure();
    bool const isWrite = failure && failure->Kind() == orx::store::FileError::Access::Write;
    return isWrite ? failure->Error() : -1;
  }
  return 0;
}

TEST(FullDisk, IsMetAtTheCallAndLeavesTheCommittedState) {
  SmallDisk const disk(4 << 20);
  if (!disk.IsMounted()) GTEST_SKIP() << "no small disk can be mounted";
  std::string const path = disk.Path("file");
  std::string committed;
  {
    Session const session = Session::Create(path);
    Change(session, 0);
    session.Commit();
    committed = Describe(session.Id());
    EXPECT_EQ(FillUp(session), ENOSPC);
    EXPECT_NE(std::string(session.Failure()->what()).find("bytes are free"), std::string::npos);
    EXPECT_THROW(session.File().ReserveGrowth(1 << 20), orx::store::FileError);
    EXPECT_EQ(FileSize(path), session.File().File().Size());
  }

  EXPECT_EQ(Describe(Session::Open(path).Id()), committed);
}

TEST(FullDisk, LetsACommitWaitForSpace) {
  SmallDisk const disk(4 << 20);
  if (!disk.IsMounted()) GTEST_SKIP() << "no small disk can be mounted";
  std::string const path = disk.Path("file");
  Session const session = Session::Create(path);
  Change(session, 0);
  session.Commit();
  Change(session, 1);
  session.Flush();
  disk.Fill(0);

  EXPECT_THROW(session.File().Commit(), orx::store::FileError);
  std::filesystem::remove(disk.Path("filler"));
  session.File().Commit();

  EXPECT_EQ(DescribeWithPlainHdf5(path), Describe(session.Id()));
}

TEST(FullDisk, MayBeALimitOfTheProcess) {
  TemporaryFolder const folder(memoryFolder);
  std::string const path = folder.Path("file");

  int const end = RunInChild([&] {
    Session const session = Session::Create(path);
    Change(session, 0);
    session.Commit();
    rlimit const limit{.rlim_cur = 2 << 20, .rlim_max = 2 << 20};
    setrlimit(RLIMIT_FSIZE, &limit);
    return FillUp(session) == EFBIG ? 0 : 1;
  });

  EXPECT_EQ(end, 0);
  EXPECT_EQ(Describe(Session::Open(path).Id()), DescribeWithPlainHdf5(path));
}

} // namespace
