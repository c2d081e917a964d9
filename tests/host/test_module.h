// A module that does to the browser whatever a test asks for: well-behaved things and faults. It is
// built twice, as a file to load and linked into the tests that look at what happened to it.
#ifndef MPBP_TESTS_HOST_TEST_MODULE_H_
#define MPBP_TESTS_HOST_TEST_MODULE_H_

#include <string>
#include <vector>

#include "abi/browser_abi.h"

namespace mpbp::test {

// What happened since the module was initialised, in order.
std::vector<std::string>& test_module_events();

}  // namespace mpbp::test

#endif  // MPBP_TESTS_HOST_TEST_MODULE_H_
