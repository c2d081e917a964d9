#include "host/resource_table.h"

#include <utility>

namespace mpbp::host {

PP_Resource ResourceTable::Add(PP_Instance instance, std::shared_ptr<Resource> resource) {
  const PP_Resource handle = next_++;
  std::string kind = resource->kind();
  entries_.emplace(handle, Entry{1, instance, std::move(kind), std::move(resource)});
  return handle;
}

ResourceTable::Entry* ResourceTable::FindEntry(PP_Resource handle, const char* where) {
  const auto found = entries_.find(handle);
  if (found != entries_.end()) return &found->second;
  if (where != nullptr) {
    misuse_.Add(std::string(where) + ": resource " + std::to_string(handle) + " is not alive");
  }
  return nullptr;
}

std::shared_ptr<Resource> ResourceTable::Find(PP_Resource handle, const char* where) {
  const Entry* entry = FindEntry(handle, where);
  return entry != nullptr ? entry->resource : nullptr;
}

void ResourceTable::AddRef(PP_Resource handle) {
  if (Entry* entry = FindEntry(handle, "AddRefResource")) ++entry->references;
}

void ResourceTable::Release(PP_Resource handle) {
  Entry* entry = FindEntry(handle, "ReleaseResource");
  if (entry == nullptr || --entry->references > 0) return;
  const auto node = entries_.extract(handle);
  if (const auto& resource = node.mapped().resource) resource->Abort();
}

void ResourceTable::DropInstance(PP_Instance instance) {
  for (auto& [handle, entry] : entries_) {
    if (entry.instance != instance) continue;
    if (const auto resource = std::exchange(entry.resource, nullptr)) resource->Abort();
  }
}

size_t ResourceTable::references() const {
  int64_t sum = 0;
  for (const auto& [handle, entry] : entries_) sum += entry.references;
  return static_cast<size_t>(sum);
}

std::vector<std::string> ResourceTable::Describe() const {
  std::vector<std::string> texts;
  texts.reserve(entries_.size());
  for (const auto& [handle, entry] : entries_) {
    texts.push_back(entry.kind + " with " + std::to_string(entry.references) + " references");
  }
  return texts;
}

void ResourceTable::Clear() { const auto dropped = std::exchange(entries_, {}); }

}  // namespace mpbp::host
