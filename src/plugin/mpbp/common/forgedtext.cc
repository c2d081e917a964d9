#include "plugin/mpbp/common/forgedtext.h"

#include <string>

#include "base/stringutils.h"
#include "jsonescapes.h"

namespace mpbp {
namespace {

constexpr std::string_view kForbidden = "mpbp-request-permission-result";

}  // namespace

bool IsForgedPermissionResult(std::string_view text) {
  if (FindWord(text, kForbidden) != std::string_view::npos) return true;
  if (text.find('\\') == std::string_view::npos) return false;
  return FindWord(WithoutJsonEscapes(text), kForbidden) != std::string_view::npos;
}

}  // namespace mpbp
