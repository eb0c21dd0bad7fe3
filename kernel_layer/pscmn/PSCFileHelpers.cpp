// Per-run file settings that the driver hands to the frustrum.
#include "PSCFileHelpers.h"

#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PSCHostDirectory.h"

namespace {

constexpr size_t kPathCapacity = 300;
constexpr size_t kExtensionCapacity = 16;
constexpr int kTextTransmitToken = 18220;
constexpr int kBinaryTransmitToken = 18221;

char g_transmitExtension[kExtensionCapacity + 1] = "";
char g_outputBase[kPathCapacity + 1] = "";
char g_schemaDirectoryText[kPathCapacity + 1] = "";
// Until the driver decides, the directory is set but empty.
const char* g_schemaDirectory = g_schemaDirectoryText;

bool st_EndsWith(const char* path, size_t length, const char* extension) {
  size_t extensionLength = std::strlen(extension);
  return strcasecmp(path + length - extensionLength, extension) == 0;
}

bool st_IsTextExtension(const char* extension) {
  if (extension == nullptr) return false;
  size_t length = std::strlen(extension);
  return (length == 4 && strcasecmp(extension, ".x_t") == 0) ||
         (length == 8 && strcasecmp(extension, ".xmt_txt") == 0);
}

void st_Copy(char* target, size_t capacity, const char* source) {
  std::snprintf(target, capacity + 1, "%s", source);
}

}  // namespace

const char* PSCFindPartFileExtension(const char* path) {
  if (path == nullptr) return nullptr;
  size_t length = std::strlen(path);
  // A bare extension is a name, not a name with an extension.
  if (length > 8 && (st_EndsWith(path, length, ".xmt_txt") ||
                     st_EndsWith(path, length, ".xmt_bin"))) {
    return path + length - 8;
  }
  if (length >= 5 && (st_EndsWith(path, length, ".x_t") || st_EndsWith(path, length, ".x_b"))) {
    return path + length - 4;
  }
  return nullptr;
}

int PSCTransmitFormatFor(int selector, const char* extension) {
  bool text = st_IsTextExtension(extension);
  if (selector == 1) return text ? 1 : 2;
  return text ? kTextTransmitToken : kBinaryTransmitToken;
}

int PSCReceivePartFile(const char* key, const char* extension, int* nParts, PK_PART_t** parts) {
  PSCSetTransmitExtension(extension);
  PK_PART_receive_o_t options;
  PK_PART_receive_o_m(options);
  options.transmit_format = PSCTransmitFormatFor(0, extension);
  return PK_PART_receive(key, &options, nParts, parts);
}

void PSCSetTransmitExtension(const char* extension) {
  if (extension == nullptr || std::strlen(extension) < 4) extension = ".x_b";
  st_Copy(g_transmitExtension, kExtensionCapacity, extension);
}

const char* PSCGetTransmitExtension() { return g_transmitExtension; }

void PSCSetOutputFile(const char* pathWithoutExtension, char* keyOut) {
  st_Copy(g_outputBase, kPathCapacity, pathWithoutExtension ? pathWithoutExtension : "");
  const char* separator = std::strrchr(g_outputBase, '/');
  const char* fileName = separator != nullptr ? separator + 1 : g_outputBase;
  if (keyOut != nullptr) st_Copy(keyOut, kPathCapacity, fileName);
}

const char* PSCGetOutputBase() { return g_outputBase; }

void PSCSetSchemaDirectory(const char* dir) {
  if (dir == nullptr) dir = std::getenv("P_SCHEMA");
  // Host programs keep their schema files beside them, whatever was asked.
  std::string hostDirectory = PSCGetHostDirectory();
  std::string hostSchema;
  if (!hostDirectory.empty()) {
    hostSchema = hostDirectory + "ETC/schema";  // the host directory ends in '/'
    dir = hostSchema.c_str();
  }
  if (dir == nullptr) {
    g_schemaDirectory = nullptr;
    return;
  }
  st_Copy(g_schemaDirectoryText, kPathCapacity, dir);
  g_schemaDirectory = g_schemaDirectoryText;
}

const char* PSCGetSchemaDirectory() { return g_schemaDirectory; }
