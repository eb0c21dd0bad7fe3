#include "Parallelism.h"

#include <BOPAlgo_Options.hxx>
#include <OSD_ThreadPool.hxx>

#include <algorithm>
#include <thread>

namespace meld::kernel {

namespace {
constexpr int kMaxThreads = 8;  // as many as the interface ever promises
int threadsInForce = 1;
}  // namespace

int processorCount() { return std::max(1u, std::thread::hardware_concurrency()); }

int threadsFor(const SmpSettings& smp) {
  int processors = processorCount();
  if (processors == 1 && !smp.onSingleProcessor) return 1;
  int threads = 1;
  if (smp.threadFormat == PK_thread_per_processor_c) threads = smp.nThreads * processors;
  else if (smp.threadFormat == PK_thread_absolute_c) threads = smp.nThreads;
  return std::clamp(threads, 1, kMaxThreads);
}

void applyParallelism(int threads) {
  BOPAlgo_Options::SetParallelMode(threads > 1);
  const Handle(OSD_ThreadPool)& pool = OSD_ThreadPool::DefaultPool();
  if (pool->NbThreads() != threads && !pool->IsInUse()) pool->Init(threads);
  threadsInForce = threads;
}

int sessionThreads() { return threadsInForce; }

}  // namespace meld::kernel
