#pragma once

#include "core/cow_COW.h"
#include "core/mem_Allocator.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

// An ordered map from integers to values: a binary search tree, balanced by the heights of its subtrees,
// whose copies share nodes until one of them changes.
//
//     tree ---> link ---> node 2            node: value, key, left link, right link, height
//                        /      \           link: a copy-on-write holder of a node. A link belongs to one
//                     link      link              node or tree; several links may hold one node.
//                      |          |
//                   node 1     node 3
//
// A copy of a tree has its own link to the same root node. A change to a tree first copies the shared nodes
// on its way down; the copy of a node has its own links to the children, which stay shared.
//
// Keys compare by the sign of their 32-bit difference, which wraps. The keys of a tree must therefore lie
// among 2^31 consecutive integers, where -2^31 follows 2^31 - 1.
//
// Only single rotations are done. The depth stays near the depth of a balanced tree in practice (below 1.5
// log2 of the count in all uses tried), but nothing guarantees this: no function here recurses.

template<class Key, class Value>
class cow_BtreeNode;
template<class Key, class Value>
class cow_Btree;
template<class Key, class Value>
class cow_BtreeIterator;

/// Destroys a link and, one after the other, the nodes below it that nobody else holds.
template<class Key, class Value>
struct cow_BtreeLinkDeleter {
  void operator()(cow_COW<cow_BtreeNode<Key, Value>>* link) const noexcept;
};

/// A key with its value, and links to its children.
template<class Key, class Value>
class cow_BtreeNode : public mem_AllocationOperators {
  static_assert(std::is_same_v<Key, std::int32_t>, "keys are compared by their 32-bit difference");

public:
  cow_BtreeNode(Key const& key, Value const& value) : m_value(value), m_key(key) {}
  /// The copy shares both children.
  cow_BtreeNode(cow_BtreeNode const& other)
      : mem_AllocationOperators(other), m_value(other.m_value), m_key(other.m_key),
        m_left(Share(other.m_left)), m_right(Share(other.m_right)), m_height(other.m_height) {}
  cow_BtreeNode& operator=(cow_BtreeNode const&) = delete;
  ~cow_BtreeNode() = default;

  Key const& GetKey() const noexcept { return m_key; }
  Value& Get() noexcept { return m_value; }
  Value const& ConstGet() const noexcept { return m_value; }
  /// The children; null when missing.
  cow_BtreeNode const* Left() const noexcept { return NodeOf(m_left); }
  cow_BtreeNode const* Right() const noexcept { return NodeOf(m_right); }
  /// 0 for a node without children, else 1 more than the larger height of its children.
  int Height() const noexcept { return m_height; }

private:
  friend class cow_Btree<Key, Value>;
  friend class cow_BtreeIterator<Key, Value>;
  friend struct cow_BtreeLinkDeleter<Key, Value>;

  using Link = cow_COW<cow_BtreeNode>;
  using LinkPtr = std::unique_ptr<Link, cow_BtreeLinkDeleter<Key, Value>>;

  static LinkPtr NewLink(Key const& key, Value const& value);
  static LinkPtr Share(LinkPtr const& link) {
    return link == nullptr ? nullptr : LinkPtr(new (mem_OperatorNewThrow(sizeof(Link))) Link(*link));
  }
  static cow_BtreeNode const* NodeOf(LinkPtr const& link) noexcept {
    return link == nullptr ? nullptr : link->ConstGet();
  }
  /// Height of a child in the balance of its parent: 0 for a missing child, as for a leaf.
  static int HeightOf(LinkPtr const& link) noexcept {
    return link == nullptr ? 0 : link->ConstGet()->m_height;
  }
  void UpdateHeight() noexcept {
    m_height = std::max(m_left == nullptr ? 0 : HeightOf(m_left) + 1,
                        m_right == nullptr ? 0 : HeightOf(m_right) + 1);
  }

  Value m_value;
  Key m_key;
  LinkPtr m_left;  ///< null when the child is missing
  LinkPtr m_right; ///< likewise
  int m_height = 0;
};

/// The map. A copy is made in constant time; changes of a copy do not affect the others. When memory runs out
/// (std::bad_alloc), keys and values are as before.
template<class Key, class Value>
class cow_Btree {
public:
  using Node = cow_BtreeNode<Key, Value>;

  /// An empty map. ConstGet returns the default value for keys that are not in the map.
  explicit cow_Btree(Value const& defaultValue = Value()) : m_default(defaultValue) {}
  cow_Btree(cow_Btree const& other)
      : m_root(Node::Share(other.m_root)), m_count(other.m_count), m_default(other.m_default) {}
  cow_Btree& operator=(cow_Btree const& other) {
    cow_Btree copy(other);
    std::swap(m_root, copy.m_root);
    std::swap(m_count, copy.m_count);
    std::swap(m_default, copy.m_default);
    return *this;
  }
  ~cow_Btree() = default;

  int Count() const noexcept { return m_count; }
  /// The root node; null when the tree is empty.
  Node const* Root() const noexcept { return Node::NodeOf(m_root); }

  // Access. Nodes and references are valid until a key is inserted or removed, or Find copies the node

  /// The node of a key for reading; null when the map lacks the key.
  Node const* ConstFind(Key const& key) const noexcept;
  /// The node of a key for changing its value; null when the map lacks the key. Nodes on the way down that
  /// other trees share are copied, also when the key is not found.
  Node* Find(Key const& key);
  /// The value of a key, or the default value.
  Value const& ConstGet(Key const& key) const noexcept {
    Node const* const node = ConstFind(key);
    return node == nullptr ? m_default : node->ConstGet();
  }

  /// Inserts a key. Returns false, and leaves its value, when the map has the key already.
  bool InsertUnlessMember(Key const& key, Value const& value);
  /// Removes a key; returns false when the map lacks it.
  bool Remove(Key const& key);

private:
  friend class cow_BtreeIterator<Key, Value>;
  using LinkPtr = typename Node::LinkPtr;
  /// Addresses of the links on the way from the root down to a node.
  using Path = std::vector<LinkPtr*>;

  static std::int32_t Difference(Key a, Key b) noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
  }
  static LinkPtr& ChildTowards(Key const& key, Node& node) noexcept {
    return Difference(key, node.m_key) <= 0 ? node.m_left : node.m_right;
  }
  std::size_t LongestPath() const noexcept {
    return m_root == nullptr ? 0 : static_cast<std::size_t>(Node::HeightOf(m_root)) + 1;
  }
  static void Rebalance(Path const& path);
  static void Balance(LinkPtr& top);
  static Node* GetUnlessItFails(LinkPtr& link) noexcept;
  static void Rotate(LinkPtr& top, LinkPtr Node::*heavySide, LinkPtr Node::*lightSide);

  LinkPtr m_root; ///< null when the map is empty
  int m_count = 0;
  Value m_default;
};

/// Walks over the keys of a tree in ascending or descending order:
///
///     cow_BtreeIterator<int, Value> at(tree);
///     for (auto const* node = at.First(); node != nullptr; node = at.Next()) ...
///
/// The tree must outlive the iterator. After a change of the tree, or a Find that copied nodes, only First
/// and Last are valid: the walk starts anew.
template<class Key, class Value>
class cow_BtreeIterator {
public:
  using Node = cow_BtreeNode<Key, Value>;

  /// There is no current node until First or Last is called.
  explicit cow_BtreeIterator(cow_Btree<Key, Value> const& tree) noexcept : m_tree(&tree) {}

  // Steps. Each returns the new current node, or null once the walk is over

  Node const* First() { return Start(&Node::m_left); }
  Node const* Last() { return Start(&Node::m_right); }
  Node const* Next() { return Step(&Node::m_right, &Node::m_left); }
  Node const* Previous() { return Step(&Node::m_left, &Node::m_right); }
  Node const* Current() const noexcept { return m_path.empty() ? nullptr : m_path.back()->ConstGet(); }

private:
  using Link = typename Node::Link;
  using Side = typename Node::LinkPtr Node::*;

  void Push(Link const* link) { m_path.push_back(link); }
  void PushAll(Link const* link, Side side);
  Node const* Start(Side side);
  Node const* Step(Side ahead, Side behind);

  cow_Btree<Key, Value> const* m_tree;
  std::vector<Link const*> m_path; ///< from the root to the current node
};

template<class Key, class Value>
void cow_BtreeLinkDeleter<Key, Value>::operator()(cow_COW<cow_BtreeNode<Key, Value>>* link) const noexcept {
  using Node = cow_BtreeNode<Key, Value>;
  while (link != nullptr) {
    Node* const node = link->UseCount() == 1 ? link->Get() : nullptr;
    if (node != nullptr && node->m_left != nullptr) {
      // Rotate left children up until there is none: no stack is needed, whatever the depth. A left child
      // with other holders loses only this link, at the end of the block.
      typename Node::LinkPtr left = std::move(node->m_left);
      if (left->UseCount() == 1) {
        Node* const child = left->Get();
        node->m_left = std::move(child->m_right);
        child->m_right.reset(link);
        link = left.release();
      }
      continue;
    }
    cow_COW<Node>* const next = node == nullptr ? nullptr : node->m_right.release();
    std::destroy_at(link);
    mem_Free(link);
    link = next;
  }
}

template<class Key, class Value>
typename cow_BtreeNode<Key, Value>::LinkPtr cow_BtreeNode<Key, Value>::NewLink(Key const& key,
                                                                               Value const& value) {
  std::unique_ptr<void, mem_Deleter> place(mem_OperatorNewThrow(sizeof(Link)));
  LinkPtr link(new (place.get()) Link(new cow_BtreeNode(key, value)));
  static_cast<void>(place.release());
  return link;
}

template<class Key, class Value>
typename cow_Btree<Key, Value>::Node const* cow_Btree<Key, Value>::ConstFind(Key const& key) const noexcept {
  Node const* node = Root();
  while (node != nullptr) {
    std::int32_t const difference = Difference(key, node->m_key);
    if (difference == 0) break;
    node = difference < 0 ? node->Left() : node->Right();
  }
  return node;
}

template<class Key, class Value>
typename cow_Btree<Key, Value>::Node* cow_Btree<Key, Value>::Find(Key const& key) {
  LinkPtr* slot = &m_root;
  while (*slot != nullptr) {
    Node* const node = (*slot)->Get();
    if (node->m_key == key) return node;
    slot = &ChildTowards(key, *node);
  }
  return nullptr;
}

template<class Key, class Value>
bool cow_Btree<Key, Value>::InsertUnlessMember(Key const& key, Value const& value) {
  Path path;
  path.reserve(LongestPath());
  LinkPtr* slot = &m_root;
  while (*slot != nullptr) {
    Node* const node = (*slot)->Get();
    if (node->m_key == key) return false;
    path.push_back(slot);
    slot = &ChildTowards(key, *node);
  }
  *slot = Node::NewLink(key, value);
  ++m_count;
  Rebalance(path);
  return true;
}

template<class Key, class Value>
bool cow_Btree<Key, Value>::Remove(Key const& key) {
  if (ConstFind(key) == nullptr) return false;
  Path path;
  path.reserve(LongestPath());
  LinkPtr* slot = &m_root;
  Node* node = (*slot)->Get();
  auto const descend = [&](LinkPtr& child) {
    path.push_back(slot);
    slot = &child;
    node = child->Get();
  };
  while (node->m_key != key)
    descend(ChildTowards(key, *node));
  if (node->m_left != nullptr && node->m_right != nullptr) {
    // The node of the next key has no left child: swap contents with it, and remove that node instead.
    Node* const vacated = node;
    descend(node->m_right);
    while (node->m_left != nullptr)
      descend(node->m_left);
    static_assert(std::is_nothrow_swappable_v<Value>, "a failure here would tear keys from their values");
    std::swap(vacated->m_key, node->m_key);
    std::swap(vacated->m_value, node->m_value);
  }
  *slot = std::move(node->m_left != nullptr ? node->m_left : node->m_right);
  --m_count;
  Rebalance(path);
  return true;
}

/// Restores height and balance of the nodes on a path, after a change below its last node. REQUIRES: no other
/// tree shares these nodes.
template<class Key, class Value>
void cow_Btree<Key, Value>::Rebalance(Path const& path) {
  for (auto slot = path.rbegin(); slot != path.rend(); ++slot) {
    (**slot)->Get()->UpdateHeight();
    Balance(**slot);
  }
}

template<class Key, class Value>
void cow_Btree<Key, Value>::Balance(LinkPtr& top) {
  Node const* const node = top->ConstGet();
  int const lean = Node::HeightOf(node->m_right) - Node::HeightOf(node->m_left);
  if (lean >= 2) {
    Rotate(top, &Node::m_right, &Node::m_left);
  } else if (lean < -1) {
    Rotate(top, &Node::m_left, &Node::m_right);
  }
}

template<class Key, class Value>
typename cow_Btree<Key, Value>::Node* cow_Btree<Key, Value>::GetUnlessItFails(LinkPtr& link) noexcept {
  try {
    return link->Get();
  } catch (...) {
    return nullptr;
  }
}

/// Lifts the child on the heavy side above its parent `top`, which becomes its child on the light side.
template<class Key, class Value>
void cow_Btree<Key, Value>::Rotate(LinkPtr& top, LinkPtr Node::*heavySide, LinkPtr Node::*lightSide) {
  Node* const node = top->Get();
  Node* const child = GetUnlessItFails(node->*heavySide);
  // Memory is too short for a copy of a shared child: the subtree stays as it is, correct but less balanced.
  if (child == nullptr) return;
  LinkPtr lifted = std::move(node->*heavySide);
  node->*heavySide = std::move(child->*lightSide);
  child->*lightSide = std::move(top);
  top = std::move(lifted);
  node->UpdateHeight();
  child->UpdateHeight();
}

/// Pushes a link and the links below it that follow on one side.
template<class Key, class Value>
void cow_BtreeIterator<Key, Value>::PushAll(Link const* link, Side side) {
  for (; link != nullptr; link = (link->ConstGet()->*side).get())
    Push(link);
}

template<class Key, class Value>
typename cow_BtreeIterator<Key, Value>::Node const* cow_BtreeIterator<Key, Value>::Start(Side side) {
  m_path.clear();
  m_path.reserve(m_tree->LongestPath()); // steps then allocate no memory
  PushAll(m_tree->m_root.get(), side);
  return Current();
}

template<class Key, class Value>
typename cow_BtreeIterator<Key, Value>::Node const* cow_BtreeIterator<Key, Value>::Step(Side ahead,
                                                                                        Side behind) {
  Node const* node = Current();
  if (node == nullptr) return nullptr;
  if (Link const* const child = (node->*ahead).get()) {
    PushAll(child, behind);
    return Current();
  }
  // Climb until the walk arrives from the side behind: that node is next.
  Link const* from = nullptr;
  do {
    from = m_path.back();
    m_path.pop_back();
    node = Current();
  } while (node != nullptr && (node->*ahead).get() == from);
  return node;
}
