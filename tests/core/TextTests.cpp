#include "core/ORXUnicodeString.h"
#include "core/atr_String.h"
#include "core/atr_translate.h"
#include "core/utl_FilePath.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

namespace {

TEST(String, WithoutRepresentationReadsAsEmpty) {
  atr_String const none, fromNull(nullptr), empty("");
  EXPECT_TRUE(none.IsNull());
  EXPECT_TRUE(fromNull.IsNull());
  EXPECT_FALSE(empty.IsNull());
  EXPECT_STREQ(none.AsText(), "");
  EXPECT_EQ(none, empty);
}

TEST(String, CopiesShareAndOutliveTheOriginal) {
  atr_String survivor;
  {
    char buffer[] = "text";
    atr_String const original(buffer);
    std::memset(buffer, 'x', 4);
    survivor = original;
    atr_String const third(survivor);
    EXPECT_EQ(original.UseCount(), 3);
    EXPECT_EQ(original.AsText(), third.AsText());
  }
  EXPECT_EQ(survivor.UseCount(), 1);
  EXPECT_STREQ(survivor.AsText(), "text");
  survivor = survivor;
  EXPECT_STREQ(survivor.AsText(), "text");
  survivor = atr_String();
  EXPECT_EQ(survivor.UseCount(), 0);
}

TEST(Translation, FillsPlaceholdersByPositionAndKind) {
  atr_translate message("%s: %i of %s");
  message.Substitute(atr_SubstituteFormat(3, "%i%s"));
  message.Substitute(atr_SubstituteFormat(2, -7));
  message.Substitute(atr_SubstituteFormat(1, 5)); // wrong kind
  EXPECT_STREQ(message.Result().AsText(), "%s: -7 of %i%s");
  message.Substitute(atr_SubstituteFormat(1, static_cast<char const*>(nullptr)));
  EXPECT_STREQ(message.Result().AsText(), ": -7 of %i%s");
}

TEST(Translation, CatalogueReplacesTheTemplate) {
  auto const before = atr_translate::SetCatalogue(
      [](char const* key) -> char const* { return std::strcmp(key, "no %s") == 0 ? "kein %s" : nullptr; });
  atr_translate known("no %s");
  known.Substitute(atr_SubstituteFormat(1, "x"));
  EXPECT_STREQ(known.Result().AsText(), "kein x");
  EXPECT_STREQ(atr_translate("other").Result().AsText(), "other");
  atr_translate::SetCatalogue(before);
  EXPECT_STREQ(atr_translate("no %s").Result().AsText(), "no %s");
}

TEST(FilePath, JoinsComponentsAndSeesFiles) {
  EXPECT_STREQ(utl_FilePath(atr_String("a"), atr_String("b")).AsString().AsText(), "a/b");
  EXPECT_STREQ(utl_FilePath(atr_String("a/"), atr_String("b")).AsString().AsText(), "a/b");
  EXPECT_STREQ(utl_FilePath(atr_String("a"), atr_String()).AsString().AsText(), "a");
  EXPECT_FALSE(utl_FilePath(atr_String(), atr_String()).Exists());

  std::string const name = testing::TempDir() + "utl_FilePath_test";
  utl_FilePath const path(atr_String(name.c_str()), atr_String());
  EXPECT_FALSE(path.Exists());
  std::fclose(std::fopen(name.c_str(), "w"));
  EXPECT_TRUE(path.Exists());
  std::remove(name.c_str());
}

TEST(UnicodeString, CountsCodePointsAndRejectsWhatIsNotUtf8) {
  EXPECT_EQ(ORXUnicodeString().CountCodePoints(), 0);
  EXPECT_EQ(ORXUnicodeString("a\u00e9\u20ac\U0001F600").CountCodePoints(), 4);
  for (char const* invalid : {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                              "\xF5\x80\x80\x80", "\xE2\x82"}) {
    EXPECT_FALSE(ORXUnicodeString(invalid).IsValid()) << testing::PrintToString(std::string(invalid));
    EXPECT_STREQ(ORXUnicodeString(invalid).AsUtf8(), invalid);
  }
}

} // namespace
