#pragma once

#include "core/atr_String.h"
#include "sim/impl/Records.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace orx::sim {

class OpenDatabase;

/// A context of an open file: its records, a note of the records that the file lacks, and, while a
/// transaction is open, the steps that undo its changes. Numbers of abandoned objects are not used again: an
/// identifier never comes to mean another object. Temporary objects are numbered from the other end (-2, -3,
/// ... for sets) and use up no numbers of the file.
class Context {
public:
  Context(OpenDatabase& database, int number, ORXSimNamespaceID space);
  Context(Context const&) = delete;
  Context& operator=(Context const&) = delete;
  /// Takes context and drawer from the records of distributions: handles that outlive the file are refused.
  ~Context();

  OpenDatabase& Database() const noexcept { return m_database; }
  int Number() const noexcept { return m_number; }
  ORXSimContextID ID() const noexcept;
  ORXSimNamespaceID Namespace() const noexcept { return m_namespace; }
  std::string Name() const; ///< "context 0 of FILE"
  std::string Path() const; ///< "/context_0"

  // Finding; a number without a record raises staleIdentifier

  CollectionRecord& CollectionAt(int number) const;
  /// Reads the labels of the set first, when they were not read yet.
  SetRecord& SetAt(int number) const;
  std::shared_ptr<DistributionRecord> const& DistributionAt(std::uint32_t handle) const;
  /// The record of a collection of this context, colour variants included.
  CollectionRecord& FindRecord(ORXSimCollectionID const& id) const;
  SetRecord& FindRecord(ORXSimCSetID const& id) const;

  ORXSimCollectionID CollectionID(int number, int color) const;

  // Changing; an error leaves everything as it was

  ORXSimCollectionID AddCollection(int size, ORXSimTypeID type);
  /// Finds or makes the set with these members; adds the labels that the collection lacks.
  ORXSimCSetID AddSet(ORXSimCollectionID const& collection, ORXSimIndexSet members, bool isTemporary);
  /// Finds or makes the temporary set of the members of `front`, then those of `back`; both sets are of this
  /// collection. The new set continues `front`.
  ORXSimCSetID AddJoinedSet(ORXSimCollectionID const& collection, int front, ORXSimCSetID const& back);
  void AddColor(ORXSimCollectionID const& collection, int color);
  int AddType(char const* name);
  ORXSimDistributionID AddDistribution(std::vector<ORXSimIDMinor> grid, ORXSimRangeType range,
                                       ORXSimTypeID type, bool isTemporary);
  /// Gives the distribution a drawer, which replaces its former drawer.
  void InstallDrawer(DistributionRecord& distribution, std::shared_ptr<Drawer> drawer);
  /// Notes that the drawer was extended: its member set along `dim`, of a symmetric drawer along both
  /// dimensions, is now `set`.
  void RecordExtension(DistributionRecord& distribution, int dim, int set);
  /// Takes back one request for a temporary set; the last drop removes it, unless a drawer holds the set.
  void DropSet(ORXSimCSetID const& id);
  /// Removes a temporary distribution and its cells; no transaction brings it back.
  void DropDistribution(ORXSimDistributionID const& id);

  // Transactions

  bool HasTransaction() const noexcept { return m_hasTransaction; }
  /// True when this transaction is open. Close abandons transactions, also when it fails.
  bool HasTransaction(int number) const noexcept { return m_hasTransaction && number == m_transaction; }
  /// Opens a transaction and returns its number.
  int BeginTransaction() noexcept {
    m_hasTransaction = true;
    return ++m_transaction;
  }
  /// Ends the transaction and keeps its changes.
  void EndTransaction() noexcept;
  /// Undoes the changes since BeginTransaction, and ends the transaction.
  void AbandonTransaction() noexcept;
  /// Frees the drawers of temporary distributions. REQUIRES: no transaction is open.
  void DropTemporaries() noexcept;

  // Saving and loading: see CatalogStorage.h

  struct Unsaved {
    bool isContext = true; ///< the group of the context
    std::set<int> collections;
    std::set<int> sets;
    std::set<std::uint32_t> distributions; ///< handles
  };
  Unsaved const& UnsavedRecords() const noexcept { return m_unsaved; }
  std::size_t SavedTypes() const noexcept { return m_savedTypes; }
  /// The number of a set in the file; a temporary set gets this number now.
  int FileNumberOf(int set);
  /// Follows the heads of a set to the first that is in the file or persistent; -1: none.
  int SavedHeadOf(int set) const;
  bool IsSetSaved(int set) const { return m_sets.at(set)->isSaved; }
  int SizeOfSet(int set) const { return m_sets.at(set)->size; }
  bool HasSet(int set) const { return m_sets.contains(set); }
  int CollectionOfSet(int set) const { return m_sets.at(set)->collection; }
  /// Notes after a commit that the file has the unsaved records.
  void MarkSaved();
  /// Notes that the group of the context is in the file.
  void MarkLoaded() noexcept { m_unsaved.isContext = false; }
  /// Notes all records as unsaved, before the catalogue is rewritten; MarkNothingUnsaved undoes this.
  void MarkUnsaved();
  void MarkNothingUnsaved() noexcept;

  using Collections = std::map<int, std::unique_ptr<CollectionRecord>>;
  using Sets = std::map<int, std::shared_ptr<SetRecord>>;
  using Distributions = std::map<std::uint32_t, std::shared_ptr<DistributionRecord>>;
  Collections const& AllCollections() const noexcept { return m_collections; }
  Distributions const& AllDistributions() const noexcept { return m_distributions; }
  std::vector<atr_String> const& Types() const noexcept { return m_types; }

  // Records that were read; a record that refers to a number without a record raises staleIdentifier

  void LoadType(char const* name) { m_types.emplace_back(name), ++m_savedTypes; }
  void LoadCollection(int number, CollectionRecord record);
  /// `record` has its labels, or `saved` and `head`; `size` and `digest` are computed here.
  void LoadSet(int number, SetRecord record);
  void LoadDistribution(std::uint32_t handle, std::shared_ptr<DistributionRecord> record);
  /// Notes a distribution as unsaved: the next commit cuts its dataset to the sizes of the drawer.
  void LoadUnsaved(std::uint32_t handle) { m_unsaved.distributions.insert(handle); }
  /// Takes over the table `numbers` of the file, which holds the labels of loaded sets.
  void KeepSavedNumbers(std::vector<int> numbers) { m_savedNumbers = std::move(numbers); }
  std::span<int const> SavedNumbers() const noexcept { return m_savedNumbers; }

private:
  template<class Change>
  void ChangeUndoably(std::function<void()> undo, Change&& change);
  SetRecord* FindSet(CollectionRecord const& collection, ORXSimIndexSet const& members, int& number) const;
  ORXSimCSetID MakeSetID(ORXSimCollectionID const& collection, int set) const;
  ORXSimCSetID FindOrAddSet(ORXSimCollectionID const& collection, ORXSimIndexSet members, bool isTemporary,
                            bool hasNewLabels);
  int NewSetNumber(bool isTemporary);
  void InsertSet(int number, std::shared_ptr<SetRecord> record);
  void RemoveSet(int number) noexcept;
  void RemoveDistribution(std::uint32_t handle) noexcept;
  void AddMembers(CollectionRecord& collection, ORXSimIndexSet const& labels);
  void MakePersistent(int set);
  void ReadMembers(SetRecord& set) const;
  std::span<int const> ListedLabels(SavedLabels const& saved) const;
  ORXSimIndexSet OwnLabels(SetRecord const& set) const;

  OpenDatabase& m_database;
  int m_number;
  ORXSimNamespaceID m_namespace;
  Collections m_collections; ///< by number
  Sets m_sets;
  Distributions m_distributions; ///< by handle
  std::vector<atr_String> m_types;
  // The next numbers
  std::int64_t m_nextCollection = 0;
  std::int64_t m_nextSet = 0;
  std::int64_t m_nextTemporarySet = -2;
  std::int64_t m_nextDistribution = 0;
  std::uint32_t m_nextTemporaryHandle = ~0u;
  Unsaved m_unsaved;
  std::size_t m_savedTypes = 0;
  std::vector<int> m_savedNumbers; ///< the table `numbers` when the file was opened
  bool m_hasTransaction = false;
  int m_transaction = 0;                     ///< number of the last transaction
  std::vector<std::function<void()>> m_undo; ///< the last step is undone first
};

} // namespace orx::sim
