/*
 * kz_sys.h - the host memory services (libkz_sys.so).
 *
 * The filter module takes all its memory from these four routines, as a
 * host engine provides them.  A handle is an opaque block reference; the
 * block's address is valid between SYSNativeLock and SYSNativeUnlock.
 *
 * The KzSys* controls are for hosts and tests: they are kept per thread, so
 * each worker thread can set its own.
 */
#ifndef KZ_SYS_H
#define KZ_SYS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* KzHandle;

KzHandle SYSNativeAlloc(uint32_t size);
void* SYSNativeLock(KzHandle handle);
void SYSNativeUnlock(KzHandle handle);
void SYSNativeFree(KzHandle handle);

/* Blocks above this many bytes are refused (SYSNativeAlloc returns null).
 * A thread that sets nothing gets KZ_SYS_DEFAULT_BLOCK_LIMIT. */
#define KZ_SYS_DEFAULT_BLOCK_LIMIT (64u * 1024u * 1024u)
void KzSysSetBlockLimit(uint32_t bytes);
uint32_t KzSysBlockLimit(void);
/* Allocations refused on this thread for being above the limit, so far: a
 * host compares it before and after a read to learn whether the limit cut a
 * frame body. */
int64_t KzSysRefusedBlocks(void);

/* Make the next allocations on this thread fail: after `successes` more
 * successful allocations, every one fails until KzSysResetFaults.  A
 * negative value disables the fault. */
void KzSysFailAllocationsAfter(int32_t successes);
/* Make SYSNativeLock yield no address on this thread (1) or work (0). */
void KzSysFailLocks(int32_t fail);
void KzSysResetFaults(void);

/* Blocks allocated and not yet freed on this thread, and allocations
 * attempted (successful or not). */
int64_t KzSysLiveBlocks(void);
int64_t KzSysAllocationCount(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* KZ_SYS_H */
