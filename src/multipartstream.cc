#include "multipartstream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>

namespace mpbp {

namespace {

constexpr std::string_view kLineBreak = "\r\n";

}  // namespace

bool MultipartStream::AddPart(std::string content, std::string_view content_disposition,
                              std::string_view content_type) {
  if (!adding_) return false;
  std::string header;
  if (!pieces_.empty()) header += kLineBreak;
  header.append("--").append(boundary_).append(kLineBreak);
  if (!content_disposition.empty()) {
    header.append("Content-Disposition: ").append(content_disposition).append(kLineBreak);
  }
  if (!content_type.empty()) {
    header.append("Content-Type: ").append(content_type).append(kLineBreak);
  }
  header += kLineBreak;
  pieces_.push_back(std::move(header));
  pieces_.push_back(std::move(content));
  return true;
}

void MultipartStream::EndParts() {
  if (!adding_) return;
  adding_ = false;
  std::string end(pieces_.empty() ? "" : kLineBreak);
  pieces_.push_back(end.append("--").append(boundary_).append("--").append(kLineBreak));
}

size_t MultipartStream::GetSize() const {
  return std::accumulate(pieces_.begin(), pieces_.end(), size_t{0},
                         [](size_t sum, const std::string& piece) { return sum + piece.size(); });
}

StreamResult MultipartStream::Read(void* buffer, size_t length, size_t* read, int* /*error*/) {
  if (read) *read = 0;
  if (length == 0) return StreamResult::SR_SUCCESS;
  for (; piece_ < pieces_.size(); ++piece_, offset_ = 0) {
    const std::string& piece = pieces_[piece_];
    const size_t count = std::min(length, piece.size() - offset_);
    if (count == 0) continue;
    memcpy(buffer, piece.data() + offset_, count);
    offset_ += count;
    if (read) *read = count;
    return StreamResult::SR_SUCCESS;
  }
  return StreamResult::SR_EOS;
}

StreamResult MultipartStream::Write(const void* /*data*/, size_t /*length*/, size_t* written,
                                    int* error) {
  if (written) *written = 0;
  if (error) *error = ENOTSUP;
  return StreamResult::SR_ERROR;
}

void MultipartStream::Close() {
  adding_ = false;
  pieces_.clear();
  piece_ = 0;
  offset_ = 0;
}

}  // namespace mpbp
