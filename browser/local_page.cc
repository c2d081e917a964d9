#include "browser/local_page.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QRegularExpression>
#include <QUrl>

namespace mpbp {
namespace {

// The browser engine shows nothing at all when the text, percent-encoded, reaches 2 MB.
constexpr int kMaxEncodedBytes = 2'000'000;

constexpr char kReference[] =
    R"re(<(?:link\b[^>]*?\bhref|script\b[^>]*?\bsrc|img\b[^>]*?\bsrc)="(?<file>[^"/:][^":]*)")re";

bool ReadFile(const QString& path, QByteArray* bytes, QString* error) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) {
    *error = QString("%1: %2").arg(path, file.errorString());
    return false;
  }
  *bytes = file.readAll();
  return true;
}

// The address that holds the file itself.
bool MakeDataUrl(const QDir& folder, const QString& reference, QString* url, QString* error) {
  if (QDir::cleanPath(reference).startsWith("..")) {
    *error = QString("%1: lies outside the page's folder").arg(reference);
    return false;
  }
  QByteArray bytes;
  if (!ReadFile(folder.filePath(reference), &bytes, error)) return false;
  const QString type =
      QMimeDatabase().mimeTypeForFile(reference, QMimeDatabase::MatchExtension).name();
  // Stack traces then name the file that they come from; console lines do by the name in the
  // address, which some engines give instead.
  if (type == "application/javascript") {
    bytes += "\n//# sourceURL=" + reference.toUtf8() + "\n";
  }
  const QByteArray name = QUrl::toPercentEncoding(QFileInfo(reference).fileName());
  *url = "data:" + type + ";charset=utf-8;name=" + name + ";base64," + bytes.toBase64();
  return true;
}

bool ReplaceReferences(const QDir& folder, QString* html, QString* error) {
  static const QRegularExpression kPattern(kReference, QRegularExpression::CaseInsensitiveOption);
  QString result;
  decltype(html->size()) copied = 0;  // the two Qts count in different types
  for (auto matches = kPattern.globalMatch(*html); matches.hasNext();) {
    const QRegularExpressionMatch match = matches.next();
    QString url;
    if (!MakeDataUrl(folder, match.captured("file"), &url, error)) return false;
    result += html->mid(copied, match.capturedStart("file") - copied) + url;
    copied = match.capturedEnd("file");
  }
  *html = result + html->mid(copied);
  return true;
}

}  // namespace

bool ReadLocalPage(const QString& path, QString* html, QString* error) {
  QByteArray bytes;
  if (!ReadFile(path, &bytes, error)) return false;
  *html = QString::fromUtf8(bytes);
  if (!ReplaceReferences(QFileInfo(path).absoluteDir(), html, error)) return false;
  if (QUrl::toPercentEncoding(*html).size() >= kMaxEncodedBytes) {
    *error = path + ": the page and its files are longer than the browser engine takes (2 MB)";
    return false;
  }
  return true;
}

}  // namespace mpbp
