#ifndef MPBP_MULTIPARTSTREAM_H_
#define MPBP_MULTIPARTSTREAM_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/stream.h"

namespace mpbp {

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

}  // namespace mpbp

#endif  // MPBP_MULTIPARTSTREAM_H_
