// The resources a module holds.
#ifndef MPBP_HOST_RESOURCE_TABLE_H_
#define MPBP_HOST_RESOURCE_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "abi/browser_abi.h"
#include "host/misuse_log.h"
#include "host/resource.h"

namespace mpbp::host {

// Main thread only.
class ResourceTable {
 public:
  explicit ResourceTable(MisuseLog& misuse) : misuse_(misuse) {}

  // The result carries one reference for the caller.
  PP_Resource Add(PP_Instance instance, std::shared_ptr<Resource> resource);
  void AddRef(PP_Resource handle);
  void Release(PP_Resource handle);
  // Null when the handle is of another kind, when its instance is gone, or when nothing lives under
  // it, which is recorded as misuse unless `where` is null.
  template <typename T>
  std::shared_ptr<T> Get(PP_Resource handle, const char* where) {
    return std::dynamic_pointer_cast<T>(Find(handle, where));
  }
  // The handles stay counted, but nothing is behind them any more.
  void DropInstance(PP_Instance instance);

  size_t live() const { return entries_.size(); }
  size_t references() const;
  std::vector<std::string> Describe() const;
  void Clear();

 private:
  struct Entry {
    int32_t references;
    PP_Instance instance;
    std::string kind;
    std::shared_ptr<Resource> resource;
  };
  std::shared_ptr<Resource> Find(PP_Resource handle, const char* where);
  Entry* FindEntry(PP_Resource handle, const char* where);

  MisuseLog& misuse_;
  std::map<PP_Resource, Entry> entries_;
  PP_Resource next_ = 7001;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_RESOURCE_TABLE_H_
