#include "plugin/mpbp/common/forgedtext.h"

#include <string>

#include "jsonescapes.h"

namespace mpbp {
namespace {

constexpr std::string_view kForbidden = "mpbp-request-permission-result";

}  // namespace

bool IsForgedPermissionResult(std::string_view text) {
  if (text.find(kForbidden) != std::string_view::npos) return true;
  if (text.find('\\') == std::string_view::npos) return false;
  return WithoutJsonEscapes(text).find(kForbidden) != std::string::npos;
}

}  // namespace mpbp
