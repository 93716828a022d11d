#include "core/cow_List.h"

#include <cstdio>
#include <cstdlib>

void cow_ListRangeFailure(int index, int count) noexcept {
  std::fprintf(stderr, "cow_List: index %d is outside a list of %d records\n", index, count);
  std::abort();
}
