#include "FileSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <sys/stat.h>

namespace {

using namespace orx::file;
using Mode = PositionedFile::Mode;

constexpr std::uint64_t page = 4096;

std::string Pattern(std::size_t bytes) {
  std::string pattern(bytes, '\0');
  for (std::size_t k = 0; k < bytes; ++k)
    pattern[k] = static_cast<char>('a' + (k * 7 + k / page) % 23);
  return pattern;
}

std::string TextOf(std::function<void()> const& work) {
  try {
    work();
  } catch (FileError const& error) {
    return error.what();
  }
  return "";
}

/// On a disk and in memory, which zero ranges in different ways.
class PositionedFileOn : public testing::TestWithParam<char const*> {
protected:
  TemporaryFolder m_folder{GetParam()};
  std::string m_path = m_folder.Path("file");
};

INSTANTIATE_TEST_SUITE_P(Folders, PositionedFileOn, testing::Values("/tmp", memoryFolder));

TEST_P(PositionedFileOn, ReservedSpaceReadsAsZeroAndIsThere) {
  PositionedFile file(m_path, Mode::Scratch);

  file.Reserve(0, 100 * page + 1);

  EXPECT_EQ(file.Size(), 100 * page + 1);
  EXPECT_EQ(FileSize(m_path), 100 * page + 1);
  EXPECT_GE(AllocatedBytes(m_path), file.MapsSafely() ? 100 * page : 0);
  EXPECT_EQ(ReadWhole(m_path), std::string(100 * page + 1, '\0'));
}

TEST_P(PositionedFileOn, ZeroedRangesKeepTheirNeighboursAndTheirSpace) {
  for (auto const& [offset, bytes] : {std::pair{100UL, 50UL},
                                      {100UL, page},
                                      {page, 3 * page},
                                      {page - 1, 3 * page + 2},
                                      {5UL, 9 * page},
                                      {7UL, 0UL}}) {
    std::string expected = Pattern(10 * page);
    std::filesystem::remove(m_path);
    PositionedFile file(m_path, Mode::Scratch);
    file.WriteAt(0, expected.data(), expected.size());
    auto const* const mapped = reinterpret_cast<char const*>(file.Bytes(0, 10 * page));

    file.ZeroRange(offset, bytes);

    std::memset(expected.data() + offset, 0, bytes);
    EXPECT_EQ(ReadWhole(m_path), expected);
    EXPECT_EQ(std::string(mapped, 10 * page), expected);
    EXPECT_GE(AllocatedBytes(m_path), file.MapsSafely() ? 10 * page : 0);
  }
}

TEST_P(PositionedFileOn, TheMappingGrowsWithTheFileAndKeepsItsBytes) {
  PositionedFile file(m_path, Mode::Scratch);
  // The mapping begins with 64 MiB.
  for (std::uint64_t const size : {page, std::uint64_t{60} << 20, std::uint64_t{70} << 20}) {
    file.Reserve(file.Size(), size);
    std::memcpy(file.Bytes(size - 8, 8), "the end.", 8);
  }

  for (std::uint64_t const size : {page, std::uint64_t{60} << 20, std::uint64_t{70} << 20}) {
    char text[8];
    file.ReadAt(size - 8, text, 8);
    EXPECT_EQ(std::string(text, 8), "the end.");
    EXPECT_EQ(std::memcmp(file.Bytes(size - 8, 8), "the end.", 8), 0);
  }
}

TEST(PositionedFile, RangesBehindTheEndAreErrors) {
  TemporaryFolder const folder;
  PositionedFile file(folder.Path("file"), Mode::Scratch);
  file.Reserve(0, 100);
  char bytes[20];

  EXPECT_NE(file.Bytes(90, 10), nullptr);
  EXPECT_EQ(ErrorOf([&] { file.Bytes(90, 11); }), EFAULT);
  EXPECT_EQ(ErrorOf([&] { file.Bytes(~std::uint64_t{0} - 4, 11); }), EFAULT);
  EXPECT_EQ(ErrorOf([&] { file.ReadAt(90, bytes, 11); }), EFAULT);
  file.Resize(50);
  EXPECT_EQ(ErrorOf([&] { file.Bytes(40, 11); }), EFAULT);
  EXPECT_EQ(TextOf([&] { file.ReadAt(90, bytes, 11); }),
            "Reading " + folder.Path("file") + " failed: 11 bytes at offset 90 are wanted, the file has 50.");
}

TEST(PositionedFile, AFullDiskIsAnErrorThatNamesTheFreeSpace) {
  SmallDisk const disk(20 * page);
  if (!disk.IsMounted()) GTEST_SKIP() << "no small disk can be mounted";
  PositionedFile file(disk.Path("file"), Mode::Scratch);
  file.Reserve(0, page);

  EXPECT_EQ(TextOf([&] { file.Reserve(page, 30 * page); }),
            "Reserving space in " + disk.Path("file") +
                " failed: No space left on device, 118784 bytes at offset 4096, 77824 bytes are free.");
  EXPECT_EQ(FileSize(disk.Path("file")), page);
  EXPECT_EQ(file.Size(), page);
}

TEST(PositionedFile, FilesWithHolesAreFilledOrNotMapped) {
  SmallDisk const disk(20 * page);
  if (!disk.IsMounted()) GTEST_SKIP() << "no small disk can be mounted";
  WriteWhole(disk.Path("file"), "x");
  std::filesystem::resize_file(disk.Path("file"), 10 * page);

  auto const mapsSafely = [&](Mode mode) {
    PositionedFile file(disk.Path("file"), mode);
    file.PrepareMapping();
    return file.MapsSafely();
  };

  EXPECT_FALSE(mapsSafely(Mode::Read));
  disk.Fill(5 * page);
  EXPECT_FALSE(mapsSafely(Mode::Write));
  std::filesystem::remove(disk.Path("filler"));
  EXPECT_TRUE(mapsSafely(Mode::Write));
  EXPECT_EQ(AllocatedBytes(disk.Path("file")), 10 * page);
}

TEST(PositionedFile, WhereSpaceCannotBeReservedNothingIsMapped) {
  TemporaryFolder const folder;
  PositionedFile file(folder.Path("file"), Mode::Scratch);
  FaultPlan const plan(FaultPlan::Effect::FailOnce, 1, EOPNOTSUPP);

  EXPECT_FALSE(file.Reserve(0, page));
  EXPECT_EQ(file.Size(), page);
  EXPECT_FALSE(file.MapsSafely());
}

// Creation

TEST(PositionedFile, CreatedFilesHaveTheirNameOncePublished) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("file");
  WriteWhole(folder.Path("file.orx-new"), "left by a killed process");
  for (bool const isPublished : {false, true}) {
    PositionedFile file(path, Mode::Create);
    EXPECT_EQ(file.Size(), 0U);
    file.WriteAt(0, "new", 3);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(ErrorOf([&] { PositionedFile const other(path, Mode::Create); }), EWOULDBLOCK);
    if (isPublished) file.Publish();
  }
  EXPECT_EQ(ReadWhole(path), "new");
  EXPECT_FALSE(std::filesystem::exists(folder.Path("file.orx-new")));
  EXPECT_EQ(ErrorOf([&] { PositionedFile const file(path, Mode::Create); }), EEXIST);
}

TEST(PositionedFile, CreationNeverTakesANameThatCameMeanwhile) {
  TemporaryFolder const folder;
  PositionedFile file(folder.Path("file"), Mode::Create);
  WriteWhole(folder.Path("file"), "precious");

  EXPECT_EQ(ErrorOf([&] { file.Publish(); }), EEXIST);
  EXPECT_EQ(ReadWhole(folder.Path("file")), "precious");
}

TEST(PositionedFile, AReplacedFileStaysUntilItsSuccessorIsPublished) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("file"), link = folder.Path("link");
  WriteWhole(path, "precious");
  chmod(path.c_str(), 0640);
  std::filesystem::create_symlink("file", link);
  {
    PositionedFile const reader(path, Mode::Read);
    EXPECT_EQ(ErrorOf([&] { PositionedFile const file(path, Mode::Replace); }), EWOULDBLOCK);
  }
  { PositionedFile const file(path, Mode::Replace); }
  EXPECT_EQ(ReadWhole(path), "precious");

  PositionedFile file(link, Mode::Replace);
  file.WriteAt(0, "new", 3);
  EXPECT_EQ(ErrorOf([&] { PositionedFile const reader(path, Mode::Read); }), EWOULDBLOCK);
  EXPECT_EQ(ReadWhole(path), "precious");
  file.Publish();

  EXPECT_EQ(ReadWhole(path), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  struct stat facts {};
  stat(path.c_str(), &facts);
  EXPECT_EQ(facts.st_mode & 0777U, 0640U);
  EXPECT_EQ(ErrorOf([&] { PositionedFile const reader(path, Mode::Read); }), EWOULDBLOCK);
}

// Other processes and programs

TEST(PositionedFile, IgnoresTheSignalOfTheSizeLimitOnlyWhileItIsOpen) {
  TemporaryFolder const folder;
  auto const handler = [] {
    struct sigaction action {};
    sigaction(SIGXFSZ, nullptr, &action);
    return action.sa_handler;
  };
  signal(SIGXFSZ, SIG_DFL);
  {
    PositionedFile const first(folder.Path("a"), Mode::Scratch);
    { PositionedFile const second(folder.Path("b"), Mode::Scratch); }
    EXPECT_EQ(handler(), SIG_IGN);
  }
  EXPECT_EQ(handler(), SIG_DFL);
  auto const ofHost = [](int) {};
  signal(SIGXFSZ, ofHost);
  { PositionedFile const third(folder.Path("c"), Mode::Scratch); }
  EXPECT_EQ(handler(), static_cast<void (*)(int)>(ofHost));
  signal(SIGXFSZ, SIG_DFL);
}

TEST(PositionedFile, GoesWithoutAMappingWhereThereAreNoAddresses) {
  TemporaryFolder const folder;
  PositionedFile file(folder.Path("file"), Mode::Scratch);
  file.Reserve(0, page);
  FaultPlan const plan(FaultPlan::Effect::FailOn, 1, ENOMEM, IsAnyStep);

  EXPECT_FALSE(file.CanMap(0, page));
  EXPECT_FALSE(file.MapsSafely());
}

TEST(PositionedFile, OnlyRegularFilesAreOpened) {
  TemporaryFolder const folder;
  WriteWhole(folder.Path("file"), "x");
  mkfifo(folder.Path("pipe").c_str(), 0600);
  auto const errorOf = [&](char const* name, Mode mode) {
    return ErrorOf([&] { PositionedFile const file(folder.Path(name), mode); });
  };

  EXPECT_EQ(errorOf("file", Mode::Create), EEXIST);
  EXPECT_EQ(errorOf("none", Mode::Write), ENOENT);
  EXPECT_EQ(errorOf(".", Mode::Read), ENODEV);
  EXPECT_EQ(errorOf(".", Mode::Write), EISDIR);
  EXPECT_EQ(errorOf("pipe", Mode::Read), ENODEV);
}

} // namespace
