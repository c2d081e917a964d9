#ifndef MPBP_HOST_ORIGIN_H_
#define MPBP_HOST_ORIGIN_H_

#include <string>

namespace mpbp::host {

// "scheme://host:port" of an http or https URL, the port always written; empty for any other.
std::string OriginOf(const std::string& url);

}  // namespace mpbp::host

#endif  // MPBP_HOST_ORIGIN_H_
