#pragma once

// What a call raised.

#include "core/ORXBasException.h"
#include "sim/ORXSimException.h"

#include <gtest/gtest.h>

#include <string>

/// The code and the message of the error that a call ends with; "nothing raised" without one.
template<class Call>
std::string Raised(Call&& call) {
  try {
    call();
  } catch (ORXBasException const& e) {
    return std::to_string(e.ErrorCode()) + " " + e.AsString().AsText();
  }
  return "nothing raised";
}

/// What a call that should succeed fails with; empty when it succeeds.
template<class Call>
std::string FailureOf(Call&& call) {
  try {
    call();
    return "";
  } catch (std::exception const& error) {
    return error.what();
  } catch (ORXBasException const& error) {
    return error.AsString().AsText();
  }
}

/// The code of the database error that a call ends with, 0 without one. `text` receives the message.
template<class Call>
int CodeOf(Call&& call, std::string* text = nullptr) {
  try {
    call();
  } catch (ORXSimException const& e) {
    if (text != nullptr) *text = e.AsString().AsText();
    return e.Code();
  }
  return 0;
}

inline std::string IllegalInput(std::string const& operation) {
  return "206 ORXSrvMatrix::" + operation + " - Illegal input.";
}
/// What an import of the file raises; `fault` is what stands behind the path.
inline std::string NotOpened(std::string const& path, std::string const& fault) {
  return "202 ORXSrvSparseImExPorter: Failed to open file " + path + fault;
}
/// The call raises an error whose code and message begin so.
template<class Call>
testing::AssertionResult RaisesFrom(std::string const& beginning, Call&& call) {
  std::string const text = Raised(call);
  return text.starts_with(beginning) ? testing::AssertionSuccess() : testing::AssertionFailure() << text;
}

/// The call raises an error of this code and message, as Raised tells them.
#define EXPECT_RAISED(expected, ...) EXPECT_EQ(Raised([&] { __VA_ARGS__; }), expected)
/// The call raises the database error of this name.
#define EXPECT_CODE(name, ...) EXPECT_EQ(CodeOf([&] { __VA_ARGS__; }), ORXSimException::name)
