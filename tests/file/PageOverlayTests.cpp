#include "FileSupport.h"
#include "file/PageOverlay.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <random>

namespace {

using namespace orx::file;

TEST(PageOverlay, BehavesAsAListOfHeldBytes) {
  constexpr std::size_t size = 3 * PageOverlay::pageBytes + 100;
  std::mt19937 random(1);
  PageOverlay overlay;
  std::vector<std::optional<char>> model(size);
  for (int round = 0; round < 2000; ++round) {
    std::size_t const offset = random() % size, longest = size - offset;
    std::size_t const bytes = random() % (round % 3 == 0 ? longest : std::min<std::size_t>(longest, 130)) + 1;
    if (random() % 2 == 0) {
      std::string const written(bytes, static_cast<char>(random() % 100));
      overlay.Write(offset, written.data(), bytes);
      std::fill_n(model.begin() + static_cast<std::ptrdiff_t>(offset), bytes, written[0]);
    } else {
      overlay.ReleaseBytes(offset, bytes);
      std::fill_n(model.begin() + static_cast<std::ptrdiff_t>(offset), bytes, std::nullopt);
    }

    std::size_t const from = random() % size;
    std::string seen(size - from, '~');
    overlay.CopyHeldBytes(from, seen.data(), seen.size());

    for (std::size_t k = 0; k < seen.size(); ++k)
      ASSERT_EQ(seen[k], model[from + k].value_or('~')) << "round " << round << ", offset " << from + k;
  }
  overlay.ReleaseBytes(0, size);
  EXPECT_TRUE(overlay.IsEmpty());
}

TEST(PageOverlay, ImagesTakeWhatIsNotHeldFromTheFileAsItIsNow) {
  TemporaryFolder const folder;
  PositionedFile file(folder.Path("file"), PositionedFile::Mode::Scratch);
  file.Reserve(0, 2 * PageOverlay::pageBytes - 10);
  PageOverlay overlay;
  overlay.Write(2 * PageOverlay::pageBytes - 100, "held in the last page, which ends behind the file", 50);
  overlay.Write(10, "held", 4);
  overlay.CompleteImages(file);
  std::memcpy(file.Bytes(8, 8), "mmmmmmmm", 8); // values written past us

  std::vector<PageOverlay::Page const*> const pages = overlay.CompleteImages(file);

  ASSERT_EQ(pages.size(), 2U);
  EXPECT_EQ(pages[0]->number, 0U);
  EXPECT_EQ(pages[1]->number, 1U);
  EXPECT_EQ(std::memcmp(pages[0]->bytes.data() + 6, "\0\0mmheldmm\0\0", 12), 0);
  EXPECT_EQ(std::memcmp(pages[1]->bytes.data() + PageOverlay::pageBytes - 100, "held in", 7), 0);
  EXPECT_EQ(pages[1]->bytes.back(), std::byte{0});
}

} // namespace
