#include "core/ORXBasException.h"

#include <gtest/gtest.h>

namespace {

class Sample : public ORXBasException {
public:
  explicit Sample(char const* text) : m_text(text) {}
  atr_String AsString() const override { return m_text; }
  [[noreturn]] void Raise() const override { throw *this; }
  int ErrorCode() const override { return 42; }

private:
  atr_String m_text;
};

TEST(Exception, ThrowRecordsWhereAndKeepsTheClass) {
  Sample sample("something broke");
  EXPECT_EQ(sample.File(), nullptr);
  EXPECT_EQ(sample.Line(), 0);
  EXPECT_STREQ(sample.DeveloperReport().AsText(), "not raised: error 42: something broke");
  try {
    sample.Throw("folder/file.cpp", 12);
  } catch (Sample const& e) {
    EXPECT_STREQ(e.File(), "folder/file.cpp");
    EXPECT_EQ(e.Line(), 12);
    EXPECT_STREQ(e.DeveloperReport().AsText(), "folder/file.cpp:12: error 42: something broke");
    EXPECT_STREQ(e.UserReport().AsText(), "something broke");
  }
}

TEST(Exception, CopiesShareTheirText) {
  auto* const first = new Sample("kept");
  Sample const copy(*first);
  delete first;
  EXPECT_STREQ(copy.AsString().AsText(), "kept");
}

} // namespace
