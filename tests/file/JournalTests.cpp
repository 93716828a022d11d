#include "FileSupport.h"
#include "file/Checksum.h"
#include "file/Journal.h"
#include "file/TransactionalFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <random>

// A file of 3 pages "o", and a commit that turns pages 0, 2 and 4 to "n" and makes it 5 pages long, caught
// when its journal is whole (pending), when it is due, and when half of it is applied (halfway).

namespace {

using namespace orx::file;
using Trailer = Journal::Trailer;

constexpr std::uint64_t page = PageOverlay::pageBytes;

void PutPage(TransactionalFile& file, std::uint64_t number, char content) {
  std::string const bytes(page, content);
  file.WriteMetadata(number * page, bytes.data(), bytes.size());
}

class JournalAtTheEnd : public testing::Test {
protected:
  static void SetUpTestSuite() {
    TemporaryFolder const folder(memoryFolder);
    std::string const path = folder.Path("file");
    auto const file = TransactionalFile::Create(path, false, false);
    file->SetEndOfAllocation(3 * page);
    for (std::uint64_t number = 0; number < 3; ++number)
      PutPage(*file, number, 'o');
    file->Commit();
    s_old = ReadWhole(path);
    file->SetEndOfAllocation(5 * page);
    std::string const values(page, 'v');
    file->WriteRawData(3 * page, values.data(), page);
    for (std::uint64_t const number : {0U, 2U, 4U})
      PutPage(*file, number, 'n');
    SetFaultHook([&](FileStep const& step) {
      bool const isInPlace = step.kind == FileStep::Kind::Write && step.offset < 5 * page;
      std::string* const states[] = {&s_pending, &s_due, &s_halfway};
      for (std::string* const state : states)
        if (isInPlace && state->empty()) {
          *state = ReadWhole(path);
          break;
        }
      return 0;
    });
    file->Commit();
    SetFaultHook(nullptr);
    s_new = ReadWhole(path);
  }

  enum class Seen : std::uint8_t { Old, New, Refused, Wrong };

  /// What is there after opening a file with these bytes.
  Seen Open(std::string const& bytes) {
    WriteWhole(m_path, bytes);
    try {
      TransactionalFile::Open(m_path, false);
    } catch (FileError const& error) {
      return error.Error() == EUCLEAN ? Seen::Refused : Seen::Wrong;
    }
    std::string const after = ReadWhole(m_path);
    if (after == s_new) return Seen::New;
    // The old state has bytes behind its end that nobody looks at.
    return after.starts_with(s_old) ? Seen::Old : Seen::Wrong;
  }

  static std::size_t Position() { return 5 * page; }
  static Trailer TrailerOf(std::string const& bytes) {
    Trailer trailer;
    std::memcpy(&trailer, bytes.data() + bytes.size() - page, sizeof trailer);
    return trailer;
  }
  static std::string WithTrailer(Trailer trailer, bool isResealed) {
    if (isResealed) trailer.checksum = Checksum(&trailer, offsetof(Trailer, checksum), 1);
    std::string bytes = s_due;
    std::memcpy(bytes.data() + bytes.size() - page, &trailer, sizeof trailer);
    return bytes;
  }

  static inline std::string s_old, s_new, s_pending, s_due, s_halfway;
  TemporaryFolder m_folder{memoryFolder};
  std::string m_path = m_folder.Path("file");
};

TEST_F(JournalAtTheEnd, HasTheLayoutOfTheFormat) {
  ASSERT_EQ(s_pending.size(), Position() + 5 * page); // images, numbers, trailer
  EXPECT_EQ(s_pending.substr(Position(), 3 * page), std::string(3 * page, 'n'));
  std::uint64_t numbers[4];
  std::memcpy(numbers, s_pending.data() + Position() + 3 * page, sizeof numbers);
  EXPECT_EQ(numbers[0], 0U);
  EXPECT_EQ(numbers[1], 2U);
  EXPECT_EQ(numbers[2], 4U);
  EXPECT_EQ(numbers[3], 0U);
  EXPECT_EQ(s_pending.substr(s_pending.size() - page, 8), "orxjrnl1");
  EXPECT_EQ(s_due.substr(0, 8), "orxapply");
  EXPECT_EQ(s_due.substr(8), s_pending.substr(8));
  EXPECT_EQ(s_new, std::string(page, 'n') + std::string(page, 'o') + std::string(page, 'n') +
                       std::string(page, 'v') + std::string(page, 'n'));
}

TEST_F(JournalAtTheEnd, IsFinishedWhenTheHeadSaysThatItIsDue) {
  EXPECT_EQ(Open(s_due), Seen::New);
  EXPECT_EQ(Open(s_halfway), Seen::New);
  // The end of a file may be values that look like a journal.
  EXPECT_EQ(Open(s_pending), Seen::Old);
}

TEST_F(JournalAtTheEnd, IsReadWithoutTouchingTheFile) {
  for (std::string const& bytes : {s_due, s_halfway}) {
    WriteWhole(m_path, bytes);
    auto const file = TransactionalFile::Open(m_path, true);
    std::string seen(5 * page, '~');

    file->ReadMetadata(0, seen.data(), seen.size());

    EXPECT_EQ(seen, s_new);
    EXPECT_EQ(file->EndOfFile(), 5 * page);
    EXPECT_EQ(file->Counts().replays, 1U);
    EXPECT_TRUE(ReadWhole(m_path) == bytes);
  }
}

TEST_F(JournalAtTheEnd, IsRefusedWhereverItIsCut) {
  for (std::size_t at = Position(); at < s_due.size(); at += page)
    for (std::size_t const more : {0U, 1U, 512U, 4095U})
      EXPECT_EQ(Open(s_due.substr(0, at + more)), Seen::Refused) << at + more;
}

TEST_F(JournalAtTheEnd, IsRefusedWhenABitIsWrong) {
  std::mt19937 random(3);
  for (int round = 0; round < 300; ++round) {
    std::string bytes = round % 2 == 0 ? s_due : s_halfway;
    bool const isInTrailer = round % 4 < 2;
    std::size_t const range = isInTrailer ? sizeof(Trailer) : s_due.size() - page - Position();
    std::size_t const at = (isInTrailer ? bytes.size() - page : Position()) + random() % range;
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << random() % 8));

    EXPECT_EQ(Open(bytes), Seen::Refused) << "offset " << at;
  }
}

TEST_F(JournalAtTheEnd, IsRefusedWhenAFieldIsWrongEvenIfTheChecksumsAgree) {
  std::uint64_t Trailer::*const fields[] = {&Trailer::magic,    &Trailer::pages, &Trailer::end,
                                            &Trailer::position, &Trailer::bytes, &Trailer::bodyChecksum};
  for (auto const field : fields) {
    for (std::uint64_t const change : {std::uint64_t{1}, page, ~std::uint64_t{0}, std::uint64_t{1} << 40,
                                       std::uint64_t{1} << 52, std::uint64_t{1} << 63}) {
      Trailer trailer = TrailerOf(s_due);
      trailer.*field += change;
      // An end inside of the file is one that could be.
      if (field == &Trailer::end && trailer.end <= trailer.position) continue;
      EXPECT_EQ(Open(WithTrailer(trailer, false)), Seen::Refused);
      EXPECT_EQ(Open(WithTrailer(trailer, true)), Seen::Refused);
    }
  }
}

TEST_F(JournalAtTheEnd, MayNotAskForAbsurdMemoryOrTime) {
  // A file that says that a journal of 1 TB is in it, and is as long as that, without taking space.
  Trailer trailer = TrailerOf(s_due);
  std::uint64_t const position = std::uint64_t{1} << 40;
  trailer.pages = position / page - 1;
  trailer.position = position;
  trailer.bytes = Journal::BytesFor(trailer.pages);
  std::string const bytes = WithTrailer(trailer, true);
  WriteWhole(m_path, bytes);
  std::filesystem::resize_file(m_path, position + trailer.bytes - page);
  std::ofstream(m_path, std::ios::app | std::ios::binary) << bytes.substr(bytes.size() - page);

  EXPECT_THROW(TransactionalFile::Open(m_path, true), FileError);

  EXPECT_LE(AllocatedBytes(m_path), 100 * page);
}

} // namespace
