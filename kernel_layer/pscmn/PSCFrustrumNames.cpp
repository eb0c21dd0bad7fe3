// File names from the kernel's key, guise and format, and the names of guises
// and formats that the part-file header records.
#include <cstdlib>
#include <cstring>
#include <string>

#include "PSCFileHelpers.h"
#include "PSCFrustrum.h"
#include "PSCFrustrumState.h"

namespace {

struct GuiseExtensions {
  const char* longName;
  const char* shortName;
};

// Indexed by guise - 2 (snapshot .. debug report).
constexpr GuiseExtensions kGuiseExtensions[] = {
    {".snp", ".N"}, {".jnl", ".J"}, {".xmt", ".X"}, {".xmt", ".xmt"}, {".sch", ".S"},
    {".lnc", ".L"}, {".xmp", ".P"}, {".xmd", ".D"}, {".xml", ".XML"},
};

// Schema files may be installed with 8.3-style names; the environment says so.
bool st_UseShortSchemaNames() {
  const char* value = std::getenv("VTX_PSC_USE_SHORT_NAME_SCHEMA");
  bool shortNames = value != nullptr && std::atoi(value) != 0;
  PSCFrustrumTrace(10, shortNames ? ">>> USING SHORT NAME SCHEMA\n"
                                  : ">>> USING LONG NAME SCHEMA\n");
  return shortNames;
}

void st_PrependSchemaDirectory(std::string& fileName) {
  const char* directory = PSCGetSchemaDirectory();
  if (directory == nullptr) return;
  // A joined name that would not fit is silently left bare.
  if (std::strlen(directory) + 1 + fileName.size() < PSC_MAX_NAME) {
    fileName = std::string(directory) + '/' + fileName;
  }
}

void st_AppendReadSuffixes(int guise, int format, bool shortNames, std::string& fileName) {
  if (guise == PK_FR_guise_transmit) {
    fileName += PSCGetTransmitExtension();
    return;
  }
  fileName += PSCGuiseExtension(guise, shortNames);
  if (guise != PK_FR_guise_transmit_noname) fileName += PSCFormatSuffix(format, shortNames);
}

void st_AppendWriteSuffixes(int guise, int format, std::string& fileName) {
  // The result part goes where the driver said, whatever key the kernel used.
  if (guise == PK_FR_guise_transmit) {
    fileName = std::string(PSCGetOutputBase()) + PSCGetTransmitExtension();
    return;
  }
  fileName += PSCGuiseExtension(guise, false);
  if (guise != PK_FR_guise_transmit_noname && guise != PK_FR_guise_debug_report) {
    fileName += PSCFormatSuffix(format, false);
  }
}

}  // namespace

const char* PSCGuiseName(int guise) {
  static const char* const kNames[] = {"rollback", "snapshot", "journal",
                                       "transmit", nullptr,    "schema",
                                       "licence",  "transmit_partition",
                                       "transmit_deltas",      "debug_report"};
  if (guise < 1 || guise > 10 || kNames[guise - 1] == nullptr) return "unknown";
  return kNames[guise - 1];
}

const char* PSCFormatName(int format) {
  if (format == PK_FR_format_binary) return "binary";
  if (format == PK_FR_format_text) return "text";
  return "unknown";
}

const char* PSCGuiseExtension(int guise, bool shortNames) {
  if (guise < 2 || guise > 10) return "";
  const GuiseExtensions& entry = kGuiseExtensions[guise - 2];
  return shortNames ? entry.shortName : entry.longName;
}

const char* PSCFormatSuffix(int format, bool shortNames) {
  if (format == PK_FR_format_binary) return shortNames ? "_B" : "_bin";
  if (format == PK_FR_format_text) return shortNames ? "_T" : "_txt";
  return "";
}

bool PSCIsBadFileName(const char* name) {
  return std::strlen(name) > PSC_MAX_NAME || name[0] == ' ';
}

int PSCBuildFileName(int guise, int format, const char* name, int namlen, bool forWrite,
                     char* key, std::string& fileName) {
  if (namlen < 0 || (name == nullptr && namlen > 0)) return PK_FR_bad_name;
  if (namlen > PSC_MAX_NAME) PSCFatalRangeError("file key", namlen, PSC_MAX_NAME);
  if (namlen > 0) std::memcpy(key, name, static_cast<size_t>(namlen));
  key[namlen] = '\0';
  fileName = key;
  if (guise == PK_FR_guise_schema) {
    if (PSCIsBadFileName(key)) return PK_FR_bad_name;
    st_PrependSchemaDirectory(fileName);
  }
  if (forWrite) {
    st_AppendWriteSuffixes(guise, format, fileName);
  } else {
    bool shortNames = guise == PK_FR_guise_schema && st_UseShortSchemaNames();
    st_AppendReadSuffixes(guise, format, shortNames, fileName);
  }
  return PK_FR_no_errors;
}
