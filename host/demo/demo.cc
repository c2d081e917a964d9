#include "host/demo/demo.h"

#include <json/reader.h>
#include <json/value.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

namespace mpbp::host {
namespace {

constexpr int kStepTimeoutMs = 15000;
constexpr char kPageUrl[] = "https://www.murmel.example/demo";
constexpr char kOptionsFolder[] = "/murmel-murmelparlplugin";
constexpr size_t kShownLength = 150;  // longer texts are cut in the transcript

HostOptions Options() {
  HostOptions options;
  options.parl.offer_2_0 = true;  // grants what is asked for
  return options;
}

}  // namespace

Demo::Demo(DemoPaths paths) : paths_(std::move(paths)), host_(Options()) {}

Demo::~Demo() {
  host_.Unload();
  // Whatever went wrong, no engine stays behind.
  for (const pid_t engine : engines_) {
    kill(engine, SIGKILL);
    waitpid(engine, nullptr, 0);
  }
}

bool Demo::Run() {
  const bool passed = RunSteps();
  if (page_) page_->DestroyInstance();
  page_.reset();
  host_.Unload();
  for (const std::string& misuse : host_.Misuse()) Say("misuse of the browser: " + misuse);
  Say("references leaked: " + std::to_string(host_.leaked()));
  return passed && host_.Misuse().empty() && host_.leaked() == 0;
}

bool Demo::RunSteps() {
  if (!WriteOptions()) return Fail("the options file could not be written");
  Title("The browser loads the module and shows a page on " + std::string(kPageUrl));
  if (const auto error = host_.Load(paths_.module)) return Fail(*error);
  page_ = host_.CreatePage(kPageUrl);
  if (!page_->has_plugin()) return Fail("the plug-in refused the page");

  Title("The page sets onmessage; there is no engine, so the plug-in starts one");
  page_->SetOnMessage([this](const std::string& text) { OnText(text); });
  if (!Await("[\"f-ready\"]") || !Await("\"qw\"")) return false;
  const pid_t first = engine_;

  Title("Texts go both ways");
  if (!Send("[\"echo\",\"gr\xc3\xbc\xc3\x9f dich, \xf0\x9f\x8e\xa7\"]")) return false;
  if (!Await("[\"echo\"")) return false;

  Title("The engine is killed with SIGKILL; the plug-in starts a new one");
  if (first <= 0 || kill(first, SIGKILL) != 0) return Fail("the engine has no process");
  if (!Await("[\"f-dead\"]") || !Await("[\"f-ready\"]") || !Await("\"qw\"")) return false;
  const pid_t second = engine_;
  if (second == first) return Fail("the engine is the old one");

  if (const char* const url = getenv("MPBP_DEMO_HTTP_URL")) {
    Title("The engine has the browser make an HTTP request");
    if (!Send("[\"ask-http\",\"GET\",\"" + std::string(url) + "\",\"\",\"\"]")) return false;
    if (!Await("[\"http-result\"") || !Await("\"error\":0")) return false;
  }
  Title("The engine asks for a permission");
  if (!Send("[\"ask-permission\",0]") || !Await("[\"permission-result\",0,true]")) return false;

  Title("The page kills the engine");
  if (!Send("[\"kill\",true]") || !Await("[\"f-dead\"]") || !Await("[\"f-killed\"]")) return false;
  return AwaitEnd(second);
}

bool Demo::WriteOptions() const {
  std::error_code error;
  const std::string folder = paths_.profile + kOptionsFolder;
  std::filesystem::create_directories(folder, error);
  std::ofstream file(folder + "/options");
  file << "install_dir=" << paths_.engine_folder << "\n";
  return file.good();
}

void Demo::Say(const std::string& line) const {
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - start_);
  printf("%7.3f  %s\n", static_cast<double>(elapsed.count()) / 1000, line.c_str());
  fflush(stdout);
}

void Demo::Title(const std::string& text) const { Say("-- " + text); }

void Demo::OnText(const std::string& text) {
  const bool cut = text.size() > kShownLength;
  Say("plug-in -> page  " + text.substr(0, kShownLength) + (cut ? " ..." : ""));
  texts_.push_back(text);
  if (text.find("\"qw\"") != std::string::npos) NoteEngine(text);
}

bool Demo::Send(const std::string& text) {
  mark_ = texts_.size();
  Say("page -> plug-in  " + text);
  const Result result = page_->Send(text);
  return !result.exception || Fail("send threw: " + *result.exception);
}

bool Demo::Await(const std::string& part) {
  const auto found = [&] {
    Reap();
    for (size_t i = mark_; i < texts_.size(); ++i) {
      if (texts_[i].find(part) != std::string::npos) {
        mark_ = i;
        return true;
      }
    }
    return false;
  };
  return host_.RunUntil(found, kStepTimeoutMs) || Fail("no text with " + part + " came");
}

bool Demo::Fail(const std::string& what) const {
  Say("FAILED: " + what);
  return false;
}

void Demo::NoteEngine(const std::string& announcement) {
  try {
    Json::Value message;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const char* const text = announcement.data();
    if (!reader->parse(text, text + announcement.size(), &message, nullptr)) return;
    engine_ = message[1]["pid"].asInt();
    if (engine_ > 0) engines_.insert(engine_);
  } catch (const std::exception&) {
    Say("an engine announced itself without a process id");
  }
}

void Demo::Reap() {
  for (auto it = engines_.begin(); it != engines_.end();) {
    it = waitpid(*it, nullptr, WNOHANG) == *it ? engines_.erase(it) : std::next(it);
  }
}

bool Demo::AwaitEnd(pid_t engine) {
  const auto ended = [&] {
    Reap();
    return !engines_.contains(engine);
  };
  if (!host_.RunUntil(ended, kStepTimeoutMs)) return Fail("the engine's process goes on");
  Say("the engine's process has ended");
  return true;
}

}  // namespace mpbp::host
