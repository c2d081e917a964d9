#include "checks/checkprogram.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/filestream.h"
#include "base/filesystem.h"
#include "checks/checkoutput.h"

namespace mpbp {
namespace {

constexpr size_t kColumn = 20;

std::string Row(std::string left, const std::string& right) {
  left.resize(std::max(left.size() + 1, kColumn), ' ');
  return "  " + left + right + '\n';
}

std::string HelpText(const CheckProgram& program) {
  std::string usage = "usage: " + program.name + " [OPTION...]";
  for (const std::string& argument : program.arguments) usage += ' ' + argument;
  std::string text = usage + "\n\n" + program.about + '\n';
  for (const ProgramOption& option : program.options) {
    text += Row(option.name + (option.value.empty() ? "" : ' ' + option.value), option.about);
  }
  return text + Row("--only NAME,...", "these checks alone") +
         Row("--list", "prints the checks' names and what each looks at") +
         Row("--json", "prints one JSON object instead of lines") +
         Row("--report FILE", "writes a report to FILE as well") +
         Row("--version", "prints the version") + Row("--help", "prints this") +
         "\nExit status: 0 all well, 1 faults were found, 2 used wrongly.\n";
}

std::string ListText(const std::vector<Check>& checks) {
  std::string text;
  for (const Check& check : checks) text += Row(check.name, check.about).substr(2);
  return text;
}

// A sentence, or "" for a line that is right.
std::string ComplaintAbout(const CheckProgram& program, const CommandLine& line,
                           const std::vector<Check>& checks) {
  for (const std::string& name : line.only) {
    if (std::none_of(checks.begin(), checks.end(),
                     [&name](const Check& check) { return check.name == name; })) {
      return "there is no check named " + name + " (--list has them)";
    }
  }
  if (line.list) return "";
  if (line.arguments.size() < program.arguments.size()) {
    return program.arguments[line.arguments.size()] + " is missing (--help)";
  }
  if (line.arguments.size() > program.arguments.size()) {
    return "unexpected argument " + line.arguments[program.arguments.size()];
  }
  return program.complaint ? program.complaint(line) : "";
}

int Complain(const CheckProgram& program, const std::string& complaint) {
  fprintf(stderr, "%s: %s\n", program.name.c_str(), Printable(complaint).c_str());
  return kUsedWrongly;
}

// Whether standard output took it all; errno says why not.
bool Print(const std::string& text) {
  return fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0;
}

int PrintAlone(const CheckProgram& program, const std::string& text) {
  if (Print(text)) return kAllWell;
  return Complain(program, std::string("standard output: ") + strerror(errno));
}

// Readable for the user alone, when it makes the file.
bool WriteReport(const std::string& path, const std::string& text, int* error) {
  static_cast<void>(Filesystem::CreatePrivateFile(path));  // it may be there already
  FileStream file;
  size_t written = 0;
  return file.Open(path, "w", error) &&
         file.Write(text.data(), text.size(), &written, error) == StreamResult::SR_SUCCESS &&
         file.Flush(error);
}

int RunAll(const CheckProgram& program, const CommandLine& line, const std::vector<Check>& checks) {
  std::vector<CheckOutcome> outcomes;
  std::string lines;
  bool printed = true;
  for (const Check& check : checks) {
    if (!line.only.empty() && !line.only.contains(check.name)) continue;
    if (program.interrupted && program.interrupted()) break;
    outcomes.push_back(RunCheck(check));
    lines += OutcomeText(outcomes.back(), false);
    if (!line.json) printed = Print(OutcomeText(outcomes.back(), WantsColors())) && printed;
  }
  if (line.json) printed = Print(OutcomesJson(program.version, outcomes));
  if (!printed) Complain(program, std::string("standard output: ") + strerror(errno));
  int error = 0;
  if (!line.report.empty() &&
      !WriteReport(line.report, program.report ? program.report(lines) : lines, &error)) {
    return Complain(program, "the report " + line.report + ": " + strerror(error));
  }
  return CountFaults(outcomes) == 0 ? kAllWell : kFaults;
}

}  // namespace

int RunCheckProgram(const CheckProgram& program, int argc, const char* const* argv) {
  std::string error;
  const auto line = ReadCommandLine(argc, argv, program.options, &error);
  if (!line) return Complain(program, error + " (--help)");
  if (line->help) return PrintAlone(program, HelpText(program));
  if (line->version) return PrintAlone(program, program.version + '\n');
  const std::vector<Check> checks = program.checks(*line);
  const std::string complaint = ComplaintAbout(program, *line, checks);
  if (!complaint.empty()) return Complain(program, complaint);
  if (line->list) return PrintAlone(program, ListText(checks));
  return RunAll(program, *line, checks);
}

}  // namespace mpbp
