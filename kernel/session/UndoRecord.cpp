#include "UndoRecord.h"

#include "KernelError.h"

namespace meld::kernel {

namespace {
void putU32(std::string& out, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

std::uint32_t getU32(const char* in) {
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value |= std::uint32_t(static_cast<unsigned char>(in[i])) << (8 * i);
  return value;
}

bool validKind(std::uint8_t kind) {
  return kind >= std::uint8_t(UndoKind::created) && kind <= std::uint8_t(UndoKind::replaced);
}
}  // namespace

std::string encodeStretch(const std::vector<UndoRecord>& records) {
  std::string out;
  out.reserve(kStretchCountBytes + records.size() * kUndoRecordBytes);
  putU32(out, static_cast<std::uint32_t>(records.size()));
  for (const UndoRecord& r : records) {
    out.push_back(static_cast<char>(r.kind));
    putU32(out, static_cast<std::uint32_t>(r.tag));
    putU32(out, static_cast<std::uint32_t>(r.cls));
    putU32(out, static_cast<std::uint32_t>(r.owner));
    putU32(out, static_cast<std::uint32_t>(r.referent));
    putU32(out, r.payloadId);
  }
  return out;
}

std::uint32_t decodeStretchCount(const char* bytes) { return getU32(bytes); }

std::vector<UndoRecord> decodeRecords(const char* bytes, std::uint32_t count) {
  std::vector<UndoRecord> records(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const char* in = bytes + std::size_t(i) * kUndoRecordBytes;
    auto kind = static_cast<std::uint8_t>(in[0]);
    require(validKind(kind), PK_ERROR_corrupt_delta);
    UndoRecord& r = records[i];
    r.kind = static_cast<UndoKind>(kind);
    r.tag = static_cast<PK_ENTITY_t>(getU32(in + 1));
    r.cls = static_cast<PK_CLASS_t>(getU32(in + 5));
    r.owner = static_cast<PK_ENTITY_t>(getU32(in + 9));
    r.referent = static_cast<PK_ENTITY_t>(getU32(in + 13));
    r.payloadId = getU32(in + 17);
    require(r.tag > 0, PK_ERROR_corrupt_delta);
  }
  return records;
}

}  // namespace meld::kernel
