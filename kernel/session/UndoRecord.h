// One entry of the undo journal and its compact binary form, the form in which
// the journal passes through the application's delta store and the rollback
// file.
#pragma once

#include "pk.h"

#include <cstdint>
#include <string>
#include <vector>

namespace meld::kernel {

enum class UndoKind : std::uint8_t { created = 1, deleted = 2, replaced = 3 };

// created: only the tag matters (undo removes it). deleted / replaced: the
// record as it was, its payload parked in the archive under payloadId.
struct UndoRecord {
  UndoKind kind = UndoKind::created;
  PK_ENTITY_t tag = PK_ENTITY_null;
  PK_CLASS_t cls = 0;
  PK_ENTITY_t owner = PK_ENTITY_null;
  PK_ENTITY_t referent = PK_ENTITY_null;
  std::uint32_t payloadId = 0;  // 0: no payload
};

// Bytes of one encoded record, and of the count that precedes a stretch.
inline constexpr std::size_t kUndoRecordBytes = 21;
inline constexpr std::size_t kStretchCountBytes = 4;

// count (u32, little endian) followed by the records.
std::string encodeStretch(const std::vector<UndoRecord>& records);
std::uint32_t decodeStretchCount(const char* bytes);
// Decodes count records; PK_ERROR_corrupt_delta on a record that cannot be one.
std::vector<UndoRecord> decodeRecords(const char* bytes, std::uint32_t count);

}  // namespace meld::kernel
