#include "core/cow_Btree.h"

#include <gtest/gtest.h>

#include <climits>
#include <initializer_list>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Tree = cow_Btree<int, int>;
using Keys = std::vector<int>;

template<class Value>
void InsertAll(cow_Btree<int, Value>& tree, std::initializer_list<int> keys) {
  for (int const key : keys)
    EXPECT_TRUE(tree.InsertUnlessMember(key, Value(10 * key)));
}

/// "2(1,3)": a node and its children, "-" for a missing one beside another.
template<class Node>
std::string Shape(Node const* node) {
  if (node == nullptr) return "-";
  std::string key = std::to_string(node->GetKey());
  if (node->Left() == nullptr && node->Right() == nullptr) return key;
  return key + "(" + Shape(node->Left()) + "," + Shape(node->Right()) + ")";
}

template<class Value>
Keys KeysOf(cow_Btree<int, Value> const& tree) {
  Keys keys;
  cow_BtreeIterator<int, Value> at(tree);
  for (auto const* node = at.First(); node != nullptr; node = at.Next())
    keys.push_back(node->GetKey());
  return keys;
}

// ---- shape

/// The rules of insertion and balance as a plain recursion, without sharing.
struct ReferenceNode {
  int key;
  std::unique_ptr<ReferenceNode> left, right;
  int height = 0;

  int GetKey() const { return key; }
  ReferenceNode const* Left() const { return left.get(); }
  ReferenceNode const* Right() const { return right.get(); }
};
using ReferenceTree = std::unique_ptr<ReferenceNode>;

void UpdateHeight(ReferenceNode& node) {
  node.height = std::max(node.left ? node.left->height + 1 : 0, node.right ? node.right->height + 1 : 0);
}

void Balance(ReferenceTree& top) {
  int const lean = (top->right ? top->right->height : 0) - (top->left ? top->left->height : 0);
  if (lean > -2 && lean < 2) return;
  ReferenceTree lifted = std::move(lean > 0 ? top->right : top->left);
  ReferenceTree& inner = lean > 0 ? lifted->left : lifted->right;
  (lean > 0 ? top->right : top->left) = std::move(inner);
  UpdateHeight(*top);
  inner = std::move(top);
  top = std::move(lifted);
  UpdateHeight(*top);
}

void Insert(ReferenceTree& tree, int key) {
  if (!tree) {
    tree.reset(new ReferenceNode{key, nullptr, nullptr});
    return;
  }
  Insert(key < tree->key ? tree->left : tree->right, key);
  UpdateHeight(*tree);
  Balance(tree);
}

TEST(Btree, HasTheShapeThatTheRulesGive) {
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    Tree tree;
    ReferenceTree reference;
    int const range = round % 3 == 0 ? 50 : 1000000;
    for (int i = 0; i < 100; ++i) {
      int const key = round % 5 == 0 ? i : static_cast<int>(random() % static_cast<unsigned>(range));
      if (tree.InsertUnlessMember(key, 0)) Insert(reference, key);
    }
    ASSERT_EQ(Shape(tree.Root()), Shape(reference.get())) << "round " << round;
  }
}

// ---- look-up and order

TEST(Btree, KeepsTheFirstValueOfAKey) {
  Tree tree(-1);
  EXPECT_EQ(tree.Root(), nullptr);
  EXPECT_EQ(tree.Find(1), nullptr);
  EXPECT_TRUE(tree.InsertUnlessMember(1, 10));
  EXPECT_FALSE(tree.InsertUnlessMember(1, 20));
  EXPECT_EQ(tree.Count(), 1);
  EXPECT_EQ(tree.ConstGet(1), 10);
  EXPECT_EQ(tree.ConstGet(2), -1) << "the default value";
  EXPECT_EQ(tree.ConstFind(2), nullptr);
  tree.Find(1)->Get() = 30;
  EXPECT_EQ(tree.ConstFind(1)->ConstGet(), 30);
}

TEST(Btree, ComparesKeysByTheirWrappingDifference) {
  Tree tree;
  InsertAll(tree, {0, -5, 7});
  EXPECT_EQ(KeysOf(tree), (Keys{-5, 0, 7}));
  Tree ends;
  for (int const key : {INT_MIN + 1, INT_MAX, INT_MIN, INT_MAX - 1})
    EXPECT_TRUE(ends.InsertUnlessMember(key, 0));
  EXPECT_EQ(KeysOf(ends), (Keys{INT_MAX - 1, INT_MAX, INT_MIN, INT_MIN + 1}));
  EXPECT_NE(ends.ConstFind(INT_MIN), nullptr);
}

TEST(BtreeIterator, WalksBothWaysAndStopsAtTheEnds) {
  Tree tree;
  cow_BtreeIterator<int, int> at(tree);
  EXPECT_EQ(at.First(), nullptr);
  EXPECT_EQ(at.Last(), nullptr);
  EXPECT_EQ(at.Next(), nullptr);

  InsertAll(tree, {3, 1, 2, 5, 4});
  EXPECT_EQ(at.Current(), nullptr);
  EXPECT_EQ(at.First()->GetKey(), 1);
  EXPECT_EQ(at.Next()->GetKey(), 2);
  EXPECT_EQ(at.Next()->GetKey(), 3);
  EXPECT_EQ(at.Previous()->GetKey(), 2);
  EXPECT_EQ(at.Current()->ConstGet(), 20);
  EXPECT_EQ(at.Previous()->GetKey(), 1);
  EXPECT_EQ(at.Previous(), nullptr);
  EXPECT_EQ(at.Next(), nullptr) << "over is over";
  Keys backwards;
  for (auto const* node = at.Last(); node != nullptr; node = at.Previous())
    backwards.push_back(node->GetKey());
  EXPECT_EQ(backwards, (Keys{5, 4, 3, 2, 1}));
}

// ---- sharing

/// Counts its objects and its copies, and fails to be copied when told to.
struct Fragile {
  static inline int alive = 0;
  static inline int copies = 0;
  static inline int failAtCopy = INT_MAX;
  int value;

  explicit Fragile(int v = 0) : value(v) { ++alive; }
  Fragile(Fragile const& other) : value(other.value) {
    if (copies == failAtCopy) throw std::bad_alloc();
    ++copies;
    ++alive;
  }
  Fragile(Fragile&& other) noexcept : value(other.value) { ++alive; }
  Fragile& operator=(Fragile const&) noexcept = default;
  ~Fragile() { --alive; }

  static void Reset(int failAt = INT_MAX) {
    copies = 0;
    failAtCopy = failAt;
  }
};
using FragileTree = cow_Btree<int, Fragile>;

FragileTree Seven() {
  FragileTree tree;
  InsertAll(tree, {4, 2, 6, 1, 3, 5, 7});
  EXPECT_EQ(Shape(tree.Root()), "4(2(1,3),6(5,7))");
  return FragileTree(tree);
}

TEST(BtreeSharing, ChangesCopyTheNodesOnTheirWayOnly) {
  {
    FragileTree const original = Seven();
    FragileTree copy(original);
    EXPECT_EQ(copy.Root(), original.Root());
    FragileTree::Node const* const kept = original.Root()->Left();

    Fragile::Reset();
    InsertAll(copy, {8});
    EXPECT_EQ(Fragile::copies, 4) << "4, 6, 7, and 8 itself";
    EXPECT_EQ(Shape(original.Root()), "4(2(1,3),6(5,7))");
    EXPECT_EQ(original.Count(), 7);
    EXPECT_EQ(copy.Root()->Left(), kept) << "the other half stays shared";

    Fragile::Reset();
    EXPECT_EQ(copy.ConstFind(1), original.ConstFind(1));
    EXPECT_EQ(Fragile::copies, 0);
    copy.Find(1)->Get().value = 0;
    EXPECT_EQ(Fragile::copies, 2) << "2 and 1; the root is private already";
    EXPECT_EQ(original.ConstFind(1)->ConstGet().value, 10);
    EXPECT_EQ(copy.Root()->Left()->Right(), kept->Right());

    Fragile::Reset();
    copy = original;
    EXPECT_EQ(Fragile::copies, 1) << "the default value; no node is copied in order to be released";
    copy = copy;
    EXPECT_EQ(copy.Root(), original.Root());
  }
  EXPECT_EQ(Fragile::alive, 0);
}

TEST(BtreeSharing, FailuresLeaveTheTreeAsItWas) {
  FragileTree const original = Seven();
  Fragile const value(80);
  for (int failAt = 0; failAt < 4; ++failAt) { // at 4, 6, 7 and 8
    FragileTree changed(original);
    Fragile::Reset(failAt);
    EXPECT_THROW(changed.InsertUnlessMember(8, value), std::bad_alloc);
    Fragile::Reset();
    EXPECT_EQ(changed.Count(), 7);
    EXPECT_EQ(Shape(changed.Root()), Shape(original.Root()));
  }
}

TEST(BtreeSharing, ARotationThatNeedsACopyIsLeftOutWhenItFails) {
  FragileTree original;
  InsertAll(original, {3, 2, 5, 1, 4, 6, 7});
  ASSERT_EQ(Shape(original.Root()), "3(2(1,-),5(4,6(-,7)))");
  FragileTree changed(original);
  EXPECT_TRUE(changed.Remove(1));
  EXPECT_EQ(Shape(changed.Root()), "5(3(2,4),6(-,7))");

  changed = original;
  Fragile::Reset(3); // copies of 3, 2 and 1, but none of 5
  EXPECT_TRUE(changed.Remove(1));
  Fragile::Reset();
  EXPECT_EQ(Shape(changed.Root()), "3(2,5(4,6(-,7)))");
  EXPECT_EQ(changed.Root()->Height(), 3);
  EXPECT_TRUE(changed.Remove(2));
  EXPECT_EQ(Shape(changed.Root()), "5(3(-,4),6(-,7))") << "made up for by the next change";
}

// ---- use at random

/// A tree and the map that it should equal.
struct Pair {
  FragileTree tree;
  std::map<int, int> map;

  void Insert(int key, int value) {
    ASSERT_EQ(tree.InsertUnlessMember(key, Fragile(value)), map.emplace(key, value).second);
  }
  void Remove(int key) { ASSERT_EQ(tree.Remove(key), map.erase(key) == 1); }
  void Change(int key, int value) {
    FragileTree::Node* const node = tree.Find(key);
    auto const found = map.find(key);
    ASSERT_EQ(node != nullptr, found != map.end());
    if (node == nullptr) return;
    node->Get().value = value;
    found->second = value;
  }
};

int CheckedHeight(FragileTree::Node const* node) {
  if (node == nullptr) return -1;
  int const height = std::max(CheckedHeight(node->Left()), CheckedHeight(node->Right())) + 1;
  EXPECT_EQ(node->Height(), height);
  return height;
}

void ExpectEqual(Pair const& pair) {
  ASSERT_EQ(pair.tree.Count(), static_cast<int>(pair.map.size()));
  cow_BtreeIterator<int, Fragile> at(pair.tree);
  FragileTree::Node const* node = at.First();
  for (auto const& [key, value] : pair.map) {
    ASSERT_NE(node, nullptr);
    ASSERT_EQ(node->GetKey(), key);
    ASSERT_EQ(node->ConstGet().value, value);
    ASSERT_EQ(pair.tree.ConstFind(key), node);
    node = at.Next();
  }
  ASSERT_EQ(node, nullptr);
  node = at.Last();
  for (auto entry = pair.map.rbegin(); entry != pair.map.rend(); ++entry, node = at.Previous())
    ASSERT_EQ(node->GetKey(), entry->first);
  ASSERT_EQ(node, nullptr);
  CheckedHeight(pair.tree.Root());
}

TEST(Btree, BehavesAsAMapUnderRandomUse) {
  {
    std::mt19937 random(2);
    std::vector<Pair> pairs(4);
    for (int step = 0; step < 60000; ++step) {
      Pair& pair = pairs[random() % pairs.size()];
      int const key = static_cast<int>(random() % 400) - 200;
      switch (auto const choice = random() % 16) {
      case 0:
        if (step % 8 == 0) pair = pairs[random() % pairs.size()];
        break;
      case 1:
        if (step % 64 == 0) pair = Pair();
        break;
      default:
        choice < 6 ? pair.Remove(key) : choice < 9 ? pair.Change(key, step) : pair.Insert(key, step);
      }
      if (step % 50 == 0) {
        for (Pair const& each : pairs)
          ASSERT_NO_FATAL_FAILURE(ExpectEqual(each)) << "step " << step;
      }
    }
  }
  EXPECT_EQ(Fragile::alive, 0);
}

} // namespace
