#include "base/pathname.h"

namespace mpbp {

Pathname::Pathname(std::string_view folder, std::string_view filename) : filename_(filename) {
  SetFolder(folder);
}

void Pathname::SetPathname(std::string_view pathname) {
  const size_t slash = pathname.rfind('/');
  const size_t folder_length = slash == std::string_view::npos ? 0 : slash + 1;
  folder_ = pathname.substr(0, folder_length);
  filename_ = pathname.substr(folder_length);
}

void Pathname::SetFolder(std::string_view folder) {
  folder_ = folder;
  if (!folder_.empty() && folder_.back() != '/') folder_ += '/';
}

void Pathname::AppendFolder(std::string_view subfolder) {
  SetFolder(folder_ + std::string(subfolder));
}

}  // namespace mpbp
