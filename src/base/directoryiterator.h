#ifndef MPBP_BASE_DIRECTORYITERATOR_H_
#define MPBP_BASE_DIRECTORYITERATOR_H_

#include <dirent.h>

#include <memory>
#include <string>

namespace mpbp {

// Walks the entries of one folder, "." and ".." included, in the system's order.
class DirectoryIterator {
 public:
  // Begins at the first entry. False when the folder cannot be opened or has no entry.
  [[nodiscard]] bool Iterate(const std::string& folder);
  // Goes to the next entry; false when there is none.
  [[nodiscard]] bool Next();
  // Of the entry it stands at, after Iterate or Next returned true.
  std::string Name() const { return entry_->d_name; }
  bool IsDirectory() const;

 private:
  struct Closer {
    // The folder was only read.
    void operator()(DIR* dir) const { static_cast<void>(closedir(dir)); }
  };

  std::unique_ptr<DIR, Closer> dir_;
  dirent* entry_ = nullptr;  // in dir_'s buffer, until the next call
};

}  // namespace mpbp

#endif  // MPBP_BASE_DIRECTORYITERATOR_H_
