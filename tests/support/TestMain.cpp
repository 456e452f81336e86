// TestMain.cpp - the main of every test executable.
//
// "--qvtest-child <role> args..." runs one registered child role instead of
// the tests, so multi-process tests can start their own executable again.
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace qvbase::test {
std::map<std::string, ChildRole>& ChildRoles();
}

int main(int argc, char** argv) {
  if (argc >= 3 && std::strcmp(argv[1], "--qvtest-child") == 0) {
    auto& roles = qvbase::test::ChildRoles();
    auto it = roles.find(argv[2]);
    if (it == roles.end()) {
      std::fprintf(stderr, "unknown child role %s\n", argv[2]);
      return 99;
    }
    return it->second(std::vector<std::string>(argv + 3, argv + argc));
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
