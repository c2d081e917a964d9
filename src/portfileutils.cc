#include "portfileutils.h"

#include <cstdint>
#include <cstring>

#include "base/filesystem.h"
#include "base/logging.h"

namespace mpbp {

Pathname GetPortFilePath(int kind) {
  Pathname path;
  if (!Filesystem::GetAppDataFolder(&path, true)) return Pathname();
  path.SetFilename(kind == kPluginPortFile ? kPluginPortFileName : kWebSocketPortFileName);
  return path;
}

bool ReadPortFile(const std::string& path, int* port, std::string* cookie) {
  FileStream file;
  if (!file.Open(path, "rb", nullptr)) return false;
  int error = 0;
  size_t port_read = 0;
  size_t cookie_read = 0;
  int32_t port_value = 0;
  static_assert(sizeof(port_value) == kPortFilePortSize);
  StreamResult result = file.ReadAll(&port_value, sizeof(port_value), &port_read, &error);
  if (result == StreamResult::SR_SUCCESS) {
    *port = port_value;
    char bytes[kPortFileCookieSize] = {};
    result = file.ReadAll(bytes, sizeof(bytes), &cookie_read, &error);
    cookie->assign(bytes, sizeof(bytes));
  }
  if (result == StreamResult::SR_SUCCESS) {
    LOG(LS_INFO) << "Read port file, port=" << *port;
    return true;
  }
  LOG(LS_ERROR) << "FileStream::Read() failed, read=" << port_read + cookie_read
                << " err=" << error;
  return false;
}

std::unique_ptr<FileStream> WritePortFile(const std::string& path, int port,
                                          const std::string& cookie) {
  if (!Filesystem::CreateFolder(Pathname(path).folder(), 0755)) {
    LOG(LS_ERROR) << "Filesystem::CreateFolder() failed.";
    return nullptr;
  }
  if (!DeletePortFile(path) || !Filesystem::CreatePrivateFile(path)) return nullptr;
  auto file = std::make_unique<FileStream>();
  int error = 0;
  if (!file->OpenShare(path, "wb", 0, &error)) {
    LOG_ERR_EX(LS_ERROR, error) << "FileStream::OpenShare() failed, err=" << error;
    return nullptr;
  }
  const int32_t port_value = port;
  char port_bytes[kPortFilePortSize];
  memcpy(port_bytes, &port_value, sizeof(port_bytes));
  if (file->WriteAll({port_bytes, sizeof(port_bytes)}, nullptr, &error) !=
          StreamResult::SR_SUCCESS ||
      file->WriteAll(cookie, nullptr, &error) != StreamResult::SR_SUCCESS) {
    LOG(LS_ERROR) << "FileStream::Write() failed, err=" << error;
    return nullptr;
  }
  if (!file->Flush()) {
    LOG(LS_ERROR) << "Unable to flush port file to disk.";
    return nullptr;
  }
  LOG(LS_INFO) << "Wrote port file, port=" << port;
  return file;
}

bool DeletePortFile(const std::string& path) {
  int error = 0;
  if (Filesystem::IsFile(path) && !Filesystem::DeleteFile(path, &error)) {
    LOG_ERR_EX(LS_ERROR, error) << "Failed to delete port file";
    return false;
  }
  return true;
}

}  // namespace mpbp
