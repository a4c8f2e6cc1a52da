// What the tests of the application's side share: findings in short, and the paths that they name.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support.h"
#include "uaclient/uaclient.h"

// The whole path, with "/" at its end, of a test's folder.
std::string Absolute(const TestFolder& folder);

std::string Replaced(std::string text, const std::string& what, const std::string& by);

// One line a finding: a warning "W", harmful "!", an error "E", then ":" for one in an operation
// list, its line and text.
std::string Shown(const uaclient::Findings& findings);

// Whether there is a finding for each of the expected beginnings and fragments ("E3 …fragment"), in
// any order, and no other.
testing::AssertionResult Are(const uaclient::Findings& findings,
                             const std::vector<std::string>& expected);
