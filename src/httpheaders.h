// HTTP response headers and dates.
#ifndef MPBP_HTTPHEADERS_H_
#define MPBP_HTTPHEADERS_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace mpbp {

using HttpHeaders = std::map<std::string, std::string>;

// Lines end at "\n" and are split at their first ":"; names in lower case, values without the
// blanks around them. The first occurrence of a name wins; lines without ":" do not count.
HttpHeaders ParseHttpHeaders(std::string_view block);

// Seconds since 1970 of an HTTP date in any of its three forms (RFC 9110, 5.6.7):
//   Sun, 06 Nov 1994 08:49:37 GMT
//   Sunday, 06-Nov-94 08:49:37 GMT   (a year more than 50 years ahead is of the century before)
//   Sun Nov  6 08:49:37 1994
// 0 for anything that is not a date from 1970 to 2106.
uint32_t ParseHttpDate(std::string_view date);

}  // namespace mpbp

#endif  // MPBP_HTTPHEADERS_H_
