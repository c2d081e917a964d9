#include "ppapi/urlresponseinfo.h"

#include "ppapi/browser.h"

namespace mpbp {

Var UrlResponseInfo::Property(PP_URLResponseProperty property) const {
  const PPB_URLResponseInfo_1_0* const table = Browser().url_response_info;
  if (!table || !info_) return {};
  return Var::Adopt(table->GetProperty(info_.get(), property));
}

}  // namespace mpbp
