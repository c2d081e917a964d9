// Texts around the log: what is kept out of it, its time stamp, and the form that uploads it.
#ifndef MPBP_LOGUTILITY_H_
#define MPBP_LOGUTILITY_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/stream.h"

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

// A multipart form body that is read as one stream. Bytes of the contents go in as they are. Used
// by one thread at a time.
class MultipartStream : public StreamInterface {
 public:
  explicit MultipartStream(std::string boundary) : boundary_(std::move(boundary)) {}

  // Adds a part; an empty disposition or type gets no header line. False once EndParts or Close
  // was called.
  [[nodiscard]] bool AddPart(std::string content, std::string_view content_disposition,
                             std::string_view content_type);
  // Adds the closing boundary; no part can follow.
  void EndParts();
  // The value for the request's Content-Type header.
  std::string GetContentType() const { return "multipart/form-data; boundary=" + boundary_; }
  // Of the whole body as added up to now, in bytes, read or not.
  size_t GetSize() const;

  // SR_EOS after all that was added up to now.
  [[nodiscard]] StreamResult Read(void* buffer, size_t length, size_t* read, int* error) override;
  // Not writable: fails with ENOTSUP.
  [[nodiscard]] StreamResult Write(const void* data, size_t length, size_t* written,
                                   int* error) override;
  // Frees the parts.
  void Close() override;

 private:
  std::string boundary_;
  std::vector<std::string> pieces_;  // headers, contents and boundaries, in their order
  size_t piece_ = 0;                 // where Read goes on: the piece
  size_t offset_ = 0;                // and the byte in it
  bool adding_ = true;
};

// Adds a file part; `name` is both its field and its file name. False after a log line on failure.
[[nodiscard]] bool AddLogToMultipart(const std::string& name, const std::string& content_type,
                                     std::string content, MultipartStream* multipart);
// Adds a form field. False after a log line on failure.
[[nodiscard]] bool AddParameterToMultipart(const std::string& key, const std::string& value,
                                           MultipartStream* multipart);

}  // namespace mpbp

#endif  // MPBP_LOGUTILITY_H_
