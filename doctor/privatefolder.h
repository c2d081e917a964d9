// A temporary folder in the place of the user's, so that nothing of the user is touched.
#ifndef MPBP_DOCTOR_PRIVATEFOLDER_H_
#define MPBP_DOCTOR_PRIVATEFOLDER_H_

#include <string>

#include "doctor/setup.h"

namespace mpbp::doctor {

class PrivateFolder {
 public:
  PrivateFolder() = default;
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  // Removes it with all that is in it. Whoever uses it has ended before.
  ~PrivateFolder();

  // Makes it when first called, with the options of `setup` but those of the log's place, and turns
  // HOME and the XDG folders of this process, and of what it starts, to it. False, also later, with
  // the reason in error(), when it cannot be made.
  bool Make(const Setup& setup);

  const std::string& error() const { return error_; }
  const std::string& path() const { return path_; }  // ends with '/'
  std::string port_file() const;

 private:
  std::string path_;
  std::string error_;
};

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_PRIVATEFOLDER_H_
