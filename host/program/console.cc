#include "host/program/console.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <functional>
#include <map>
#include <thread>
#include <utility>

#include "host/program/arguments.h"

namespace mpbp::host {
namespace {

std::chrono::steady_clock::duration Seconds(double seconds) {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(seconds));
}

}  // namespace

void PrintLine(std::string_view text) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  std::printf("%02d:%02d:%02d.%03ld ", local.tm_hour, local.tm_min, local.tm_sec,
              now.tv_nsec / 1'000'000);
  std::fwrite(text.data(), 1, text.size(), stdout);  // may hold NUL bytes
  std::putchar('\n');
}

Console::Console(Host& host, std::string url, int input, double linger_seconds)
    : host_(host), url_(std::move(url)), input_(input), linger_(Seconds(linger_seconds)) {}

Console::~Console() {
  if (watch_ != 0) host_.loop().Unwatch(watch_);
}

bool Console::Open() {
  page_ = host_.CreatePage(url_, {{"type", "application/x-murmelparl"}});
  if (!page_->has_plugin()) {
    PrintLine("the plug-in refused the page " + url_);
    return false;
  }
  SetOnMessage();
  return true;
}

void Console::Run(int stop_fd) {
  const int stop = host_.loop().Watch(stop_fd, POLLIN, [this] { done_ = true; });
  watch_ = host_.loop().Watch(input_, POLLIN, [this] { OnInput(); });
  while (!done_) {
    constexpr int kRoundMs = 20;
    host_.RunOnce(kRoundMs);
    TakeLines();
  }
  host_.loop().Unwatch(stop);
}

void Console::OnInput() {
  char buffer[4096];
  const ssize_t got = read(input_, buffer, sizeof buffer);
  if (got < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (got > 0) {
    partial_.append(buffer, static_cast<size_t>(got));
    for (size_t end = partial_.find('\n'); end != std::string::npos; end = partial_.find('\n')) {
      lines_.push_back(partial_.substr(0, end));
      partial_.erase(0, end + 1);
    }
    return;
  }
  input_over_ = true;
  if (!partial_.empty()) lines_.push_back(std::move(partial_));
  host_.loop().Unwatch(std::exchange(watch_, 0));
}

void Console::TakeLines() {
  while (!done_ && Clock::now() >= wait_until_) {
    if (lines_.empty()) {
      if (!input_over_) return;
      if (end_announced_) {
        done_ = true;
      } else {
        end_announced_ = true;
        wait_until_ = Clock::now() + linger_;
      }
      continue;
    }
    const std::string line = std::move(lines_.front());
    lines_.pop_front();
    HandleLine(line);
  }
}

void Console::HandleLine(const std::string& line) {
  if (line.starts_with("/") && !line.starts_with("//")) {
    const size_t blank = line.find(' ');
    HandleCommand(line.substr(0, blank), blank == std::string::npos ? "" : line.substr(blank + 1));
  } else if (!line.empty()) {
    Check(page_->Send(line.starts_with("//") ? line.substr(1) : line));
  }
}

void Console::HandleCommand(const std::string& command, const std::string& argument) {
  const std::map<std::string, std::function<void()>> commands = {
      {"/version",
       [&] {
         const Result result = page_->Get("version");
         if (Check(result)) PrintLine("version: " + ToText(result.value));
       }},
      {"/props", [&] { ListProperties(); }},
      {"/set", [&] { SetOnMessage(); }},
      {"/clear", [&] { Check(page_->ClearOnMessage()); }},
      {"/destroy", [&] { page_->DestroyInstance(); }},
      {"/create",
       [&] {
         if (page_->has_plugin()) {
           PrintLine("the page has the element already");
         } else {
           Open();
         }
       }},
      {"/event", [&] { FireEvent(argument); }},
      {"/wait", [&] { Wait(argument); }},
      {"/slow", [&] { SetSlowness(argument); }},
      {"/help", [&] { std::fputs(kUsage, stdout); }},
      {"/quit", [&] { done_ = true; }},
  };
  const auto found = commands.find(command);
  if (found != commands.end()) {
    found->second();
  } else {
    PrintLine("there is no command " + command + ", see /help");
  }
}

void Console::ListProperties() {
  Thrown thrown;
  for (const std::string& name : page_->Enumerate(&thrown)) PrintLine("property: " + name);
  Check({Undefined{}, thrown});
}

void Console::SetOnMessage() {
  Check(page_->SetOnMessage([this](const std::string& text) {
    PrintLine(text);
    std::this_thread::sleep_for(slowness_);
  }));
}

void Console::SetSlowness(const std::string& ms) {
  if (const auto number = ParseSeconds(ms)) {
    slowness_ = Seconds(*number / 1000);
  } else {
    PrintLine("/slow needs a number of milliseconds");
  }
}

void Console::FireEvent(const std::string& code) {
  int32_t event = 0;
  const char* const end = code.data() + code.size();
  const auto [stop, error] = std::from_chars(code.data(), end, event);
  if (error != std::errc() || stop != end) {
    PrintLine("/event needs a whole number");
  } else if (!page_->FireRemotingEvent(event)) {
    PrintLine("no remoting session was started");
  }
}

void Console::Wait(const std::string& seconds) {
  if (const auto time = ParseSeconds(seconds)) {
    wait_until_ = Clock::now() + Seconds(*time);
  } else {
    PrintLine("/wait needs a number of seconds");
  }
}

bool Console::Check(const Result& result) {
  if (result.exception) PrintLine("exception: " + *result.exception);
  return !result.exception;
}

}  // namespace mpbp::host
