// The plug-in's version.
#ifndef MPBP_PLUGIN_MPBP_COMMON_VERSION_H_
#define MPBP_PLUGIN_MPBP_COMMON_VERSION_H_

#include <string>

namespace mpbp {

inline constexpr char kPluginVersion[] = "5, 1, 7, 0";

// As pages read it: without blanks, and with full stops for commas.
inline std::string PluginVersion() {
  std::string version;
  for (const char* c = kPluginVersion; *c; ++c) {
    if (*c != ' ') version += *c == ',' ? '.' : *c;
  }
  return version;
}

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_VERSION_H_
