// A module that does to the browser whatever a test asks for: well-behaved things and faults. It is
// built twice, as a file to load and linked into the tests that look into its state.
#ifndef MPBP_TESTS_HOST_TEST_MODULE_H_
#define MPBP_TESTS_HOST_TEST_MODULE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "abi/browser_abi.h"

namespace mpbp::test {

// What happened since the module was initialised, in order.
struct TestModuleState {
  std::vector<std::string> events;
  std::string body;              // of the last fetch
  std::vector<int32_t> results;  // of the last fetch, in order
};

TestModuleState& test_module_state();

}  // namespace mpbp::test

#endif  // MPBP_TESTS_HOST_TEST_MODULE_H_
