#include "host/misuse_log.h"

#include <utility>

namespace mpbp::host {

void MisuseLog::Add(std::string text) {
  std::lock_guard lock(mutex_);
  texts_.push_back(std::move(text));
}

std::vector<std::string> MisuseLog::texts() const {
  std::lock_guard lock(mutex_);
  return texts_;
}

void MisuseLog::Clear() {
  std::lock_guard lock(mutex_);
  texts_.clear();
}

}  // namespace mpbp::host
