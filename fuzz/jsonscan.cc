// What is told of a text without parsing it, against what the parser says.
#include "jsonscan.h"

#include "fuzz/fuzz.h"
#include "jsontext.h"

namespace mpbp::fuzz {

void TestInput(std::string_view input) {
  const std::optional<Json::Value> parsed = ParseJson(std::string(input));
  FUZZ_CHECK(!IsPlainJson(input) || (parsed && (parsed->isArray() || parsed->isObject())));

  const auto check = [&](const char* name) {
    const bool named = parsed && AsString(ElementAt(*parsed, 0)) == name;
    FUZZ_CHECK(!named || MayBeNamed(input, {"other", name}));
  };
  check("kill");
  check("uploadbrowserpluginlog");
  check("mpbp-stop-remoting");

  // What is plain is still so between blanks and brackets, and named when it is told to be.
  if (!IsPlainJson(input)) return;
  const std::string inside = " [\"kill\" ,{\"\":" + std::string(input) + "}\n]\t";
  FUZZ_CHECK(IsPlainJson(inside) && ParseJson(inside));
  FUZZ_CHECK(MayBeNamed(inside, {"kill"}) && !MayBeNamed(inside, {"kil", "kill2", "mpbp"}));
}

}  // namespace mpbp::fuzz
