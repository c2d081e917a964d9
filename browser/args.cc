#include "browser/args.h"

#include <QRegularExpression>
#include <functional>
#include <map>

namespace mpbp {
namespace {

constexpr char kDefaultUrl[] = "https://www.murmel.example/";
constexpr char kDefaultPage[] = "/examples/console/index.html";
constexpr char kDefaultModule[] = "/libmpbppapiplugin.so";

struct Parser {
  BrowserArgs* args;
  QStringList pages;
  QStringList urls;
};

// Takes the option's value; returns a message when it is no good, else an empty text.
using TakeValue = std::function<QString(Parser&, const QString&)>;

QString TakeRunFor(Parser& parser, const QString& value) {
  bool is_number = false;
  parser.args->run_for = value.toDouble(&is_number);
  if (is_number && parser.args->run_for >= 0 && parser.args->run_for <= 86400) return {};
  return "is not a number of seconds from 0 to 86400";
}

QString TakeWindow(Parser& parser, const QString& value) {
  static const QRegularExpression kForm("^([0-9]{2,4})x([0-9]{2,4})$");
  const QRegularExpressionMatch match = kForm.match(value);
  if (!match.hasMatch()) return "is not of the form WIDTHxHEIGHT";
  parser.args->window = QSize(match.captured(1).toInt(), match.captured(2).toInt());
  return {};
}

QString TakeMapping(Parser& parser, const QString& value) {
  static const QRegularExpression kForm(R"(^([A-Za-z0-9.*:-]+)=([A-Za-z0-9.-]+:[0-9]+)$)");
  const QRegularExpressionMatch match = kForm.match(value);
  if (!match.hasMatch()) return "is not of the form PATTERN=HOST:PORT";
  parser.args->mappings.push_back({match.captured(1), match.captured(2)});
  return {};
}

const std::map<QString, TakeValue>& ValueOptions() {
  const auto text = [](auto field) {
    return [field](Parser& parser, const QString& value) {
      parser.args->*field = value;
      return value.isEmpty() ? QString("is empty") : QString();
    };
  };
  const auto list = [](auto field) {
    return [field](Parser& parser, const QString& value) {
      (parser.*field).append(value);
      return value.isEmpty() ? QString("is empty") : QString();
    };
  };
  static const std::map<QString, TakeValue> kOptions = {
      {"--page", list(&Parser::pages)},
      {"--url", list(&Parser::urls)},
      {"--profile", text(&BrowserArgs::profile)},
      {"--screenshot", text(&BrowserArgs::screenshot)},
      {"--module", text(&BrowserArgs::module)},
      {"--run-for", TakeRunFor},
      {"--window", TakeWindow},
      {"--map-host", TakeMapping},
  };
  return kOptions;
}

const std::map<QString, bool BrowserArgs::*>& Switches() {
  static const std::map<QString, bool BrowserArgs::*> kSwitches = {
      {"--in-process", &BrowserArgs::in_process},
      {"--headless", &BrowserArgs::headless},
      {"--dark", &BrowserArgs::dark},
      {"--sandbox", &BrowserArgs::sandbox},
      {"--help", &BrowserArgs::help},
  };
  return kSwitches;
}

bool IsAbsoluteUrl(const QString& text) { return text.contains("://"); }

// The n-th --url belongs to the n-th --page.
bool PairPages(const Parser& parser, const QString& program_dir, QString* error) {
  QStringList pages = parser.pages;
  if (pages.isEmpty()) pages.append(program_dir + kDefaultPage);
  if (parser.urls.size() > pages.size()) {
    *error = "there are more --url than --page";
    return false;
  }
  for (int i = 0; i < pages.size(); ++i) {
    PageSource source;
    if (IsAbsoluteUrl(pages[i])) {
      source.url = QUrl(pages[i], QUrl::StrictMode);
    } else {
      source.file = pages[i];
      source.url = QUrl(parser.urls.value(i, kDefaultUrl), QUrl::StrictMode);
    }
    if (!source.url.isValid() || source.url.scheme().isEmpty()) {
      *error = QString("\"%1\" is not a URL").arg(parser.urls.value(i, pages[i]));
      return false;
    }
    parser.args->pages.push_back(source);
  }
  return true;
}

}  // namespace

QString UsageText() {
  return R"(Usage: mpbp-browser [option]...
Opens pages in a browser window with the plug-in registered, and prints their console.

  --page FILE|URL     the page; a FILE is shown under the address that --url gives, a URL is loaded
                      (default: the example console). May be repeated; each page gets a window
  --url URL           the address of the page in FILE (default: https://www.murmel.example/); the
                      n-th --url belongs to the n-th --page
  --profile DIR       keep everything below DIR: the plug-in's options and log, the engine's port
                      file, the browser's data (default: the user's own folders)
  --module FILE       the plug-in module (default: libmpbppapiplugin.so next to this program)
  --in-process        run the module in the page's process instead of one of its own
  --headless          open no window; needs no display
  --window WxH        size of the window (default: 1200x800)
  --dark              tell pages that the user prefers dark colours
  --run-for SECONDS   end that long after the pages have loaded (default: when they are closed)
  --screenshot FILE   save a PNG of the first page just before the end
  --map-host PATTERN=HOST:PORT
                      connect to HOST:PORT for every host that matches PATTERN ("*.example"), or
                      host:port pair; certificate errors of such hosts are ignored when HOST is a
                      loopback address. May be repeated
  --sandbox           keep the browser engine's sandbox; the plug-in cannot start an engine in it
  --help              print this

Each line of a page's console is printed as "[page N LEVEL SOURCE:LINE] text", and what happens to
a page as "[page N loaded] URL", and so on with "failed", "crashed" and "closed".
A page may end the program: window.close() closes its window, and the console text
"mpbp-browser:exit N" ends with status N. Otherwise the status is 0 at the end of --run-for, when
the last window is closed and on SIGINT and SIGTERM; 1 when a page could not be loaded or crashed
or the screenshot could not be saved; 2 when the command line is wrong.
Flags for the browser engine in QTWEBENGINE_CHROMIUM_FLAGS are kept.
)";
}

bool ParseArgs(const QStringList& words, const QString& program_dir, BrowserArgs* args,
               QString* error) {
  *args = BrowserArgs();
  Parser parser{args, {}, {}};
  for (int i = 0; i < words.size(); ++i) {
    const QString& word = words[i];
    if (const auto found = Switches().find(word); found != Switches().end()) {
      args->*(found->second) = true;
      continue;
    }
    const auto option = ValueOptions().find(word);
    if (option == ValueOptions().end()) {
      *error = QString("unknown argument \"%1\"").arg(word);
      return false;
    }
    if (++i >= words.size()) {
      *error = word + " needs a value";
      return false;
    }
    const QString complaint = option->second(parser, words[i]);
    if (!complaint.isEmpty()) {
      *error = QString("%1: \"%2\" %3").arg(word, words[i], complaint);
      return false;
    }
  }
  if (args->module.isEmpty()) args->module = program_dir + kDefaultModule;
  return PairPages(parser, program_dir, error);
}

}  // namespace mpbp
