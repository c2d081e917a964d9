// A path in two parts: a folder that ends with '/' (or is empty) and a file name (or none).
#ifndef MPBP_BASE_PATHNAME_H_
#define MPBP_BASE_PATHNAME_H_

#include <string>
#include <string_view>

namespace mpbp {

class Pathname {
 public:
  Pathname() = default;
  // Everything up to the last '/' is the folder, the rest the file name.
  explicit Pathname(std::string_view pathname) { SetPathname(pathname); }
  Pathname(std::string_view folder, std::string_view filename);

  void SetPathname(std::string_view pathname);
  // Adds the closing '/' when it is missing; an empty folder stays empty.
  void SetFolder(std::string_view folder);
  // Adds a subfolder to the folder part.
  void AppendFolder(std::string_view subfolder);
  void SetFilename(std::string_view filename) { filename_ = filename; }

  const std::string& folder() const { return folder_; }
  const std::string& filename() const { return filename_; }
  std::string pathname() const { return folder_ + filename_; }
  bool empty() const { return folder_.empty() && filename_.empty(); }

 private:
  std::string folder_;
  std::string filename_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_PATHNAME_H_
