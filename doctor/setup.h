// Where everything is, as the plug-in would find it. Finding it changes nothing on the machine.
#ifndef MPBP_DOCTOR_SETUP_H_
#define MPBP_DOCTOR_SETUP_H_

#include <string>

#include "base/optionsfile.h"

namespace mpbp::doctor {

inline constexpr char kModuleName[] = "libmpbppapiplugin.so";
inline constexpr char kConnectorName[] = "mpbp-connector";
inline constexpr char kLogName[] = "mpbppapiplugin.log";
inline constexpr char kConnectorLogName[] = "mpbpconnector.log";
inline constexpr char kOptionsName[] = "options";

// All that the plug-in reads.
inline constexpr const char* kOptionNames[] = {"install_dir", "pluginppapi_log_level",
                                               "pluginppapi_log_path", "plugin_enable_corp_host",
                                               "prompt_delivery"};

// The folder that stands for "/" where system-wide things are looked for: browsers, their
// manifests, Qt. For tests and for looking at another root; "/" by default.
inline constexpr char kRootVariable[] = "MPBP_DOCTOR_ROOT";

struct Setup {
  std::string home;            // HOME; may be empty
  std::string root;            // ends with '/'
  std::string folder;          // the user's, ends with '/'; empty when none is known
  std::string engine_program;  // its path by the options, whether or not it is there
  std::string module;          // their paths; empty when they are not there
  std::string connector;
  OptionsFile options{""};  // empty when the file could not be read

  // An option's value; empty when it is not set.
  std::string Option(const std::string& name) const;
  // The log of the module, or of the connector, as it stands now: with %TIMESTAMP% in its path the
  // newest one. Empty when there is no place for it.
  std::string LogPath(const std::string& default_name) const;
};

// `module` and `connector` are paths, or empty to look for them beside this program. Reads the
// environment as it is now.
Setup FindSetup(const std::string& module, const std::string& connector);

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_SETUP_H_
