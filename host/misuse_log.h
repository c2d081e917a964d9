// What the module did wrong towards the browser, as texts that tests expect to be empty.
#ifndef MPBP_HOST_MISUSE_LOG_H_
#define MPBP_HOST_MISUSE_LOG_H_

#include <mutex>
#include <string>
#include <vector>

namespace mpbp::host {

// Any thread may add and read.
class MisuseLog {
 public:
  void Add(std::string text);
  std::vector<std::string> texts() const;
  void Clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_MISUSE_LOG_H_
