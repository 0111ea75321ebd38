// Host memory services: the block allocator a host engine hands its filter
// modules, with per-thread limits and fault injection for hosts and tests.
#include "kz_sys.h"

#include <cstdlib>

namespace {

struct Block {
    void* data;  // allocated at exactly the requested size
    uint32_t size;
};

struct ThreadControls {
    uint32_t blockLimit = KZ_SYS_DEFAULT_BLOCK_LIMIT;
    int32_t successesBeforeFailure = -1;
    bool failLocks = false;
    int64_t liveBlocks = 0;
    int64_t allocations = 0;
    int64_t refused = 0;
};

thread_local ThreadControls controls;

}  // namespace

extern "C" {

KzHandle SYSNativeAlloc(uint32_t size) {
    ++controls.allocations;
    if (size > controls.blockLimit) {
        ++controls.refused;
        return nullptr;
    }
    if (controls.successesBeforeFailure == 0) return nullptr;
    if (controls.successesBeforeFailure > 0) --controls.successesBeforeFailure;
    auto* block = static_cast<Block*>(std::malloc(sizeof(Block)));
    if (block == nullptr) return nullptr;
    block->data = std::malloc(size == 0 ? 1 : size);
    if (block->data == nullptr) {
        std::free(block);
        return nullptr;
    }
    block->size = size;
    ++controls.liveBlocks;
    return block;
}

void* SYSNativeLock(KzHandle handle) {
    if (handle == nullptr || controls.failLocks) return nullptr;
    return static_cast<Block*>(handle)->data;
}

void SYSNativeUnlock(KzHandle) {}

void SYSNativeFree(KzHandle handle) {
    if (handle == nullptr) return;
    auto* block = static_cast<Block*>(handle);
    std::free(block->data);
    std::free(block);
    --controls.liveBlocks;
}

void KzSysSetBlockLimit(uint32_t bytes) { controls.blockLimit = bytes; }
uint32_t KzSysBlockLimit(void) { return controls.blockLimit; }
int64_t KzSysRefusedBlocks(void) { return controls.refused; }

void KzSysFailAllocationsAfter(int32_t successes) { controls.successesBeforeFailure = successes; }
void KzSysFailLocks(int32_t fail) { controls.failLocks = fail != 0; }
void KzSysResetFaults(void) {
    controls.successesBeforeFailure = -1;
    controls.failLocks = false;
}

int64_t KzSysLiveBlocks(void) { return controls.liveBlocks; }
int64_t KzSysAllocationCount(void) { return controls.allocations; }

}  // extern "C"
