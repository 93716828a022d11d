#include "mtx/impl/exchange/SparseBlocks.h"
#include "tests/fuzz/FuzzOne.h"

using namespace orx;

// Chunks of four entries: files stay small, and every one has several.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  return FuzzOne(bytes, size, [](char const* path) { return ReadChunkedBinary(path, 2); });
}
