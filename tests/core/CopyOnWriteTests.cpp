#include "core/cow_COW.h"
#include "core/cow_CountedHld.h"

#include <gtest/gtest.h>

namespace {

struct Tracked : mem_AllocationOperators {
  static inline int alive = 0;
  int value;
  explicit Tracked(int v) : value(v) { ++alive; }
  Tracked(Tracked const& other) : value(other.value) { ++alive; }
  ~Tracked() { --alive; }
};

TEST(CountedHolder, LastCopyDestroysTheObject) {
  {
    cow_CountedHld<Tracked> a(new Tracked(1));
    {
      cow_CountedHld<Tracked> const b(a);
      cow_CountedHld<Tracked> c;
      c = b;
      EXPECT_EQ(a.UseCount(), 3);
      EXPECT_EQ(c.GetPtr(), a.GetPtr());
    }
    EXPECT_EQ(a.UseCount(), 1);
    a = a;
    EXPECT_EQ(a.GetPtr()->value, 1);
  }
  EXPECT_EQ(Tracked::alive, 0);
}

TEST(CountedHolder, InstallingAnObjectLeavesCopiesWithTheOldState) {
  cow_CountedHld<Tracked> a;
  cow_CountedHld<Tracked> const copy(a);
  a = new Tracked(2);
  EXPECT_TRUE(copy.IsNull());
  EXPECT_EQ(copy.UseCount(), 1);
  EXPECT_EQ(a.UseCount(), 1);
  a = new Tracked(3); // alone now: the old object goes
  EXPECT_EQ(Tracked::alive, 1);
  EXPECT_EQ(a.GetPtr()->value, 3);
}

TEST(CopyOnWrite, WritingCopiesASharedObjectOnce) {
  cow_COW<Tracked> a(new Tracked(1)), b(a);
  EXPECT_EQ(a.ConstGet(), b.ConstGet());

  b.Get()->value = 2;

  EXPECT_EQ(a.ConstGet()->value, 1);
  EXPECT_EQ(b.ConstGet()->value, 2);
  Tracked const* const own = b.ConstGet();
  EXPECT_EQ(b.Get(), own);
  EXPECT_EQ(a.UseCount(), 1);
  EXPECT_EQ(Tracked::alive, 2);
}

} // namespace
