// Keeping what is secret out of a report.
#ifndef MPBP_DOCTOR_REDACTION_H_
#define MPBP_DOCTOR_REDACTION_H_

#include <string>
#include <string_view>
#include <vector>

namespace mpbp::doctor {

// A log line as it may be shown: texts of engines and pages, cookies and everything else that is
// not the plug-in's own words are "(...)". What is not known to be harmless goes. Empty for a line
// that does not begin as the plug-in's do: the rest of a text with line breaks.
std::string RedactLogLine(std::string_view line);

// The last `count` lines of a log, each redacted, with a note of those that were left out.
std::string RedactLog(std::string_view log, size_t count);

class NameRedaction {
 public:
  // Takes the names of this user and machine from the environment and the password database.
  static NameRedaction OfThisUser();

  void Add(const std::string& text, const std::string& replacement);
  // Names as whole words only; and whatever follows "/home/".
  std::string Apply(std::string text) const;

 private:
  struct Entry {
    std::string text;
    std::string replacement;
  };
  std::vector<Entry> entries_;
};

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_REDACTION_H_
