// The files of an engine that is looked at.
#ifndef MPBP_ENGINECHECK_PRIVATEFOLDER_H_
#define MPBP_ENGINECHECK_PRIVATEFOLDER_H_

#include <string>
#include <vector>

namespace mpbp::enginecheck {

// A temporary folder with what an engine takes for the user's own, removed with everything in it at
// the end.
class PrivateFolder {
 public:
  PrivateFolder();  // without a path on failure
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  ~PrivateFolder();

  // Without a closing '/'.
  const std::string& path() const { return path_; }
  std::string PortFile() const;
  // "NAME=value", of the variables that lead an engine here and nowhere else.
  std::vector<std::string> Environment() const;

  // The port file's bytes, of a large one the first hundred; empty when it cannot be read.
  std::string ReadPortFile() const;
  // Puts a file with mode 0600 in the place of the port file. False when that fails.
  [[nodiscard]] bool ReplacePortFile(const std::string& content) const;

 private:
  void Remove();

  std::string path_;
};

}  // namespace mpbp::enginecheck

#endif  // MPBP_ENGINECHECK_PRIVATEFOLDER_H_
