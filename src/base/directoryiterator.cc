#include "base/directoryiterator.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace mpbp {

bool DirectoryIterator::Iterate(const std::string& folder) {
  dir_.reset(opendir(folder.c_str()));
  return dir_ && Next();
}

bool DirectoryIterator::Next() {
  entry_ = readdir(dir_.get());
  return entry_ != nullptr;
}

bool DirectoryIterator::IsDirectory() const {
  if (entry_->d_type != DT_UNKNOWN && entry_->d_type != DT_LNK) return entry_->d_type == DT_DIR;
  struct stat status = {};
  return fstatat(dirfd(dir_.get()), entry_->d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace mpbp
