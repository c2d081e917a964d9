// Texts around the log: what is kept out of it, its time stamp, and the form that uploads it.
#ifndef MPBP_LOGUTILITY_H_
#define MPBP_LOGUTILITY_H_

#include <string>
#include <string_view>

#include "multipartstream.h"

namespace mpbp {

// The boundary of the log upload's form.
inline constexpr char kLogFormBoundary[] = "----**--u8jzPde0IgxLd6GncfBAepfJBd0Kh8--**----";

// The text as it may be logged: the values of "kp" members and what follows the name in a remoting
// message are gone. It works on the text, not on its JSON: a "kp" whose colon is followed by a
// blank keeps its value.
std::string RedactMessage(std::string_view text);

// The text with every "%TIMESTAMP%" replaced by the log's start, in local time, as
// "20240131-235959".
std::string ReplaceTimestamp(std::string_view text);

// Adds a file part; `name` is both its field and its file name. False after a log line on failure.
[[nodiscard]] bool AddLogToMultipart(const std::string& name, const std::string& content_type,
                                     std::string content, MultipartStream* multipart);
// Adds a form field. False after a log line on failure.
[[nodiscard]] bool AddParameterToMultipart(const std::string& key, const std::string& value,
                                           MultipartStream* multipart);

}  // namespace mpbp

#endif  // MPBP_LOGUTILITY_H_
