#pragma once

#include "DatabaseSupport.h"
#include "ModelDrawer.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <random>

template<class Container>
int Count(Container const& container) {
  return static_cast<int>(container.size());
}

/// A random session with a database beside a plain model of what it should hold. All that happens follows
/// from the seed, so a ghost, which has no database, learns what a session that was killed had done.
///
/// Errors, and differences between database and model, are std::runtime_error.
class Session {
public:
  struct Collection {
    Labels labels;
    ORXSimCollectionID id{};
  };
  struct Field {
    std::vector<int> collections; ///< along each dimension
    bool isInteger = false;
    std::shared_ptr<ModelDrawer> drawer{};
    std::vector<int> sizes{}; ///< of the drawer in this state: transactions share drawers
    ORXSimDistributionID id{};
  };

  explicit Session(std::string path) : m_path(std::move(path)) {}
  /// The same state without the database. REQUIRES: no open transaction.
  Session Ghost() const;

  void Seed(unsigned seed);
  /// A new file, empty.
  void CreateFile();
  void OpenFile(bool readOnly);
  /// Commits, abandoning open transactions.
  void CloseFile();
  /// Ends without a word, as a killed process does.
  void DropFile();

  /// Something random. Reads are compared, and a sample of all fields after each commit.
  void Step();
  int FieldCount() const;

  /// All of the database.
  void CheckAll() const;
  /// Raises unless the database holds this; cells may also be those of another model, and are then taken
  /// over.
  void CheckAndAdopt(Session const& inFlight);
  /// Forgets what was not committed.
  void GoBackToCommit();

private:
  struct State {
    std::vector<Collection> collections;
    std::vector<Field> fields;
  };
  struct Context {
    State now{};
    std::optional<State> committed{};
    std::optional<State> atBegin{}; ///< of the open transaction
    ORXSimContextID id{};
    std::optional<ORXSimTransaction> transaction{};
  };

  /// Work with the database, which a ghost leaves out.
  template<class Call>
  void Live(Call&& call) {
    if (m_database != nullptr) call();
  }
  int Draw(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_random); }
  int DrawBurst(int most) { return Draw(0, 99) == 0 ? Draw(1, most) : Draw(1, 3); }
  bool DrawOneIn(int count) { return Draw(1, count) == 1; }
  double DrawValue() { return Draw(-1000, 1000); }
  std::vector<double> DrawValues(std::size_t count) {
    std::vector<double> values(count);
    std::generate(values.begin(), values.end(), [&] { return DrawValue(); });
    return values;
  }
  template<class Items>
  auto& DrawFrom(Items& items) {
    return items[Draw(0, Count(items) - 1)];
  }
  /// Null when there is none that is suitable.
  Field* DrawField(Context& context, std::function<bool(Field const&)> const& suits);
  Labels DrawLabels(Collection const& collection, int most);
  Labels DrawNewLabels(Collection const& collection, Labels const& present, int count);
  std::vector<std::vector<int>> DrawPositions(ModelDrawer const& drawer);

  // What a step does
  void CreateContext();
  void CreateCollections();
  void CreateSets();
  void CreateFields();
  void ReplaceDrawer();
  void Write();
  void ReadMany();
  void Extend();
  void ChangeMatrix();
  void ReadProduct();
  void Begin();
  void Commit();
  void Abandon();
  void Reopen();

  void MakeDrawer(Context& context, Field& field);
  void MakeDenseDrawer(Field& field, bool isEverything);
  void MakeSparseDrawer(Field& field);
  void Lengthen(Context& context, Field& field, bool asMatrix);
  void Scale(Field& field);
  void AddTo(Context& context, Field& field);
  void WriteView(Field& field);

  // Comparing
  void CheckShape(Context const& context) const;
  void CheckCollections(Context const& context) const;
  /// `other` may be null.
  static void CheckField(Field const& field, Field const* other);
  void CheckSample();
  [[noreturn]] static void Fail(std::string const& text) { throw std::runtime_error(text); }
  void Restore(Context& context, State const& state) const;
  void FindIdentifiers();

  std::string m_path;
  std::mt19937 m_random;
  std::mt19937 m_sampleRandom; ///< draws what a ghost does not
  std::vector<Context> m_contexts;
  std::shared_ptr<ORXSimDatabase> m_database; ///< null: a ghost, or closed
};
