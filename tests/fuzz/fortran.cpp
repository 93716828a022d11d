#include "mtx/impl/exchange/FortranRecords.h"
#include "tests/fuzz/FuzzOne.h"

using namespace orx;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  return FuzzOne(bytes, size, [](char const* path) { return ReadFortranRecords(path); });
}
