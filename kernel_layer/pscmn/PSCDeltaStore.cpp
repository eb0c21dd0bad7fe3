#include "PSCDeltaStore.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned kInitialCapacity = 10;
constexpr std::uint64_t kBlockData = 2048;

// A block is 2064 bytes: the fill count, the link, then the data.
struct DeltaBlock {
  std::uint64_t used;
  DeltaBlock* next;
  char data[kBlockData];
};
static_assert(sizeof(DeltaBlock) == 2064, "delta blocks are 2064 bytes");

struct Delta {
  PK_PMARK_t pmark;
  int isOpen;
  int isReading;
  DeltaBlock* first;
  DeltaBlock* current;
  std::uint32_t position;
};

int g_running = 0;
unsigned g_capacity = 0;
Delta** g_deltaTable = nullptr;
std::uint64_t g_bytesReleased = 0;

DeltaBlock* allocateBlock() {
  auto* block = static_cast<DeltaBlock*>(std::malloc(sizeof(DeltaBlock)));
  if (block) {
    block->used = 0;
    block->next = nullptr;
  }
  return block;
}

void free_delta(unsigned index) {
  Delta* delta = g_deltaTable[index];
  if (!delta) {
    std::printf("*** free_delta(): Delta %d isn't there!\n", static_cast<int>(index));
    return;
  }
  for (DeltaBlock* block = delta->first; block;) {
    DeltaBlock* next = block->next;
    std::free(block);
    g_bytesReleased += sizeof(DeltaBlock);
    block = next;
  }
  std::free(delta);
  g_deltaTable[index] = nullptr;
}

// Key checks shared by the callbacks that take an existing delta. The two
// messages differ per callback, so each passes its own.
Delta* findDelta(PK_DELTA_t key, const char* outOfRange, const char* missing,
                 PK_ERROR_code_t* rc) {
  if (key <= 0 || static_cast<unsigned>(key) > g_capacity || !g_deltaTable) {
    std::printf(outOfRange, key);
    *rc = PK_ERROR_bad_delta;
    return nullptr;
  }
  Delta* delta = g_deltaTable[key - 1];
  if (!delta) {
    std::printf(missing, key);
    *rc = PK_ERROR_bad_delta;
    return nullptr;
  }
  *rc = 0;
  return delta;
}

// The first free slot, doubling the table when all are taken. Returns false
// when the table cannot grow.
bool freeSlot(unsigned* slot) {
  for (unsigned i = 0; i < g_capacity; ++i) {
    if (!g_deltaTable[i]) {
      *slot = i;
      return true;
    }
  }
  unsigned newCapacity = g_capacity * 2;
  auto** table = static_cast<Delta**>(std::realloc(g_deltaTable, newCapacity * sizeof(Delta*)));
  if (!table) return false;
  for (unsigned i = g_capacity; i < newCapacity; ++i) table[i] = nullptr;
  *slot = g_capacity;
  g_deltaTable = table;
  g_capacity = newCapacity;
  return true;
}

int startStore() {
  if (g_running) {
    std::printf("*** FRU__delta_init(): ");
    std::printf("Attempt to start when running!\n");
    return 0;
  }
  g_deltaTable = static_cast<Delta**>(std::calloc(kInitialCapacity, sizeof(Delta*)));
  if (!g_deltaTable) return 0;
  g_capacity = kInitialCapacity;
  g_running = 1;
  return 1;
}

int stopStore() {
  if (!g_running) {
    std::printf("*** FRU__delta_init(): ");
    std::printf("Attempt to stop when not running!\n");
    return 0;
  }
  for (unsigned i = 0; i < g_capacity; ++i) {
    if (g_deltaTable[i]) free_delta(i);
  }
  std::free(g_deltaTable);
  g_deltaTable = nullptr;
  g_capacity = 0;
  g_running = 0;
  return 1;
}

}  // namespace

int FRU__delta_init(int action) {
  if (action == 1) return startStore();
  if (action == 2) return stopStore();
  std::printf("*** FRU__delta_init(): Invalid argument: %d.\n", action);
  return 0;
}

PK_ERROR_code_t FRU_delta_open_for_write(PK_PMARK_t pmark, PK_DELTA_t* key) {
  unsigned slot = 0;
  if (!g_deltaTable || !freeSlot(&slot)) {
    std::printf("*** FRU_delta_open_for_write(): ");
    std::printf("Failed to enlarge delta array!\n");
    return PK_ERROR_memory_full;
  }
  auto* delta = static_cast<Delta*>(std::malloc(sizeof(Delta)));
  if (!delta) {
    std::printf("*** FRU_delta_open_for_write(): Failed to allocate delta!\n");
    *key = 0;
    return PK_ERROR_memory_full;
  }
  *delta = Delta{pmark, 1, 0, nullptr, nullptr, 0};
  g_deltaTable[slot] = delta;
  *key = static_cast<PK_DELTA_t>(slot + 1);
  return 0;
}

PK_ERROR_code_t FRU_delta_open_for_read(PK_DELTA_t key) {
  PK_ERROR_code_t rc = 0;
  Delta* delta = findDelta(key, "*** FRU_delta_open_for_read(): Key value %d out of range!\n",
                           "*** FRU_delta_open_for_read(): Delta %d does not exist\n", &rc);
  if (!delta) return rc;
  if (delta->isOpen) {
    std::printf("*** FRU_delta_open_for_read(): Delta %d is already open\n", key);
    return PK_ERROR_bad_delta;
  }
  delta->current = delta->first;
  delta->isOpen = 1;
  delta->isReading = 1;
  delta->position = 0;
  return 0;
}

PK_ERROR_code_t FRU_delta_close(PK_DELTA_t key) {
  PK_ERROR_code_t rc = 0;
  Delta* delta = findDelta(key, "*** FRU_delta_close(): Key value %d out of range!\n",
                           "*** FRU_delta_close(): Delta %d does not exist.\n", &rc);
  if (!delta) return rc;
  if (!delta->isOpen) {
    std::printf("*** FRU_delta_close(): Delta %d is not open\n", key);
    return PK_ERROR_bad_delta;
  }
  // Only a warning: the kernel decides how much of a delta it needs.
  if (delta->isReading && delta->first &&
      (delta->current->next || delta->position != delta->current->used)) {
    std::printf("*** FRU_delta_close(): Delta %d closed with data unread\n", key);
  }
  delta->isOpen = 0;
  return 0;
}

PK_ERROR_code_t FRU_delta_write(PK_DELTA_t key, unsigned int n_bytes, const char* bytes) {
  PK_ERROR_code_t rc = 0;
  Delta* delta = findDelta(key, "*** FRU_delta_write(): Key value %d out of range!\n",
                           "*** FRU_delta_write(): Delta %d does not exist.\n", &rc);
  if (!delta) return rc;
  if (!delta->isOpen) {
    std::printf("*** FRU_delta_write(): Delta %d is not open.\n", key);
    return PK_ERROR_bad_delta;
  }
  if (delta->isReading) {
    std::printf("*** FRU_delta_write(): Delta %d is open for reading\n", key);
    return PK_ERROR_bad_delta;
  }
  if (!delta->first) {
    delta->first = delta->current = allocateBlock();
    if (!delta->first) {
      std::printf("*** FRU_delta_write(): Can't allocate block\n");
      return PK_ERROR_memory_full;
    }
  }
  // The next block is only allocated when there is more to write, so a delta
  // of exactly n * 2048 bytes has n blocks.
  while (n_bytes > 0) {
    DeltaBlock* block = delta->current;
    if (block->used == kBlockData) {
      DeltaBlock* next = allocateBlock();
      if (!next) {
        std::printf("*** FRU_delta_write(): ");
        std::printf("Couldn't allocate following block.\n");
        return PK_ERROR_memory_full;
      }
      block->next = next;
      delta->current = block = next;
    }
    std::uint64_t room = kBlockData - block->used;
    unsigned chunk = n_bytes < room ? n_bytes : static_cast<unsigned>(room);
    std::memcpy(block->data + block->used, bytes, chunk);
    block->used += chunk;
    bytes += chunk;
    n_bytes -= chunk;
  }
  return 0;
}

PK_ERROR_code_t FRU_delta_read(PK_DELTA_t key, unsigned int n_bytes, char* bytes) {
  PK_ERROR_code_t rc = 0;
  Delta* delta = findDelta(key, "*** FRU_delta_read(): Key value %d out of range!\n",
                           "*** FRU_delta_read(): Delta %d does not exist.\n", &rc);
  if (!delta) return rc;
  if (!delta->isOpen) {
    std::printf("*** FRU_delta_read(): Delta %d is not open.\n", key);
    return PK_ERROR_bad_delta;
  }
  if (!delta->isReading) {
    std::printf("*** FRU_delta_read(): Delta %d is open for writing\n", key);
    return PK_ERROR_bad_delta;
  }
  // Reads go by whole blocks: the kernel knows how much it wrote.
  while (n_bytes > 0) {
    // The read stays on the last block when it runs out, so that a later
    // close still sees where it stopped.
    bool atBlockEnd = !delta->current || delta->position == kBlockData;
    if (atBlockEnd && (!delta->current || !delta->current->next)) {
      std::printf("*** FRU_delta_read(): ");
      std::printf("Attempt to read beyond end of delta.\n");
      return PK_ERROR_delta_read_past_end;
    }
    if (atBlockEnd) {
      delta->current = delta->current->next;
      delta->position = 0;
    }
    std::uint32_t room = static_cast<std::uint32_t>(kBlockData) - delta->position;
    unsigned chunk = n_bytes < room ? n_bytes : room;
    if (bytes) {
      std::memcpy(bytes, delta->current->data + delta->position, chunk);
      bytes += chunk;
    }
    delta->position += chunk;
    n_bytes -= chunk;
  }
  return 0;
}

PK_ERROR_code_t FRU_delta_delete(PK_DELTA_t key) {
  PK_ERROR_code_t rc = 0;
  Delta* delta = findDelta(key, "*** FRU_delta_delete(): Key value %d out of range!\n",
                           "*** FRU_delta_delete(): Delta %d does not exist.\n", &rc);
  if (!delta) return rc;
  if (delta->isOpen) {
    std::printf("*** FRU_delta_delete(): Delta %d is open.\n", key);
    return PK_ERROR_bad_delta;
  }
  free_delta(static_cast<unsigned>(key - 1));
  return 0;
}

void PSCFillDeltaFrustrum(PK_DELTA_frustrum_t* record) {
  record->open_for_write_fn = FRU_delta_open_for_write;
  record->open_for_read_fn = FRU_delta_open_for_read;
  record->close_fn = FRU_delta_close;
  record->write_fn = FRU_delta_write;
  record->read_fn = FRU_delta_read;
  record->delete_fn = FRU_delta_delete;
}

PSCDeltaStoreStats PSCGetDeltaStoreStats() {
  PSCDeltaStoreStats stats{g_running != 0, g_capacity, 0, g_bytesReleased};
  for (unsigned i = 0; i < g_capacity; ++i) {
    if (g_deltaTable[i]) ++stats.liveDeltas;
  }
  return stats;
}

unsigned PSCDeltaBlockCount(PK_DELTA_t key) {
  if (key <= 0 || static_cast<unsigned>(key) > g_capacity || !g_deltaTable[key - 1]) return 0;
  unsigned count = 0;
  for (DeltaBlock* b = g_deltaTable[key - 1]->first; b; b = b->next) ++count;
  return count;
}
