// A minimal host for the fuzz targets (their stream is the tests' memory
// stream): routines that fold every host call into a hash, so two runs over
// the same input can be compared.
#ifndef KZ_FUZZ_FUZZ_HOST_H
#define KZ_FUZZ_FUZZ_HOST_H

#include <cstdint>
#include <cstdlib>

#include "kz_id3.h"
#include "memory_stream.h"

namespace kzfuzz {

struct FuzzHost {
    uint64_t hash;
    uint64_t calls;
    uint32_t frameBreaks;
    uint32_t endBreaks;
    uint8_t stopPattern;  // bit (n mod 8) set: stop at the n-th frame break
};

// Registers the nine routines on the context with the host as user pair.
void RegisterHost(VwContext* context, FuzzHost* host);

// A finding: abort so the fuzzer keeps the input.
[[noreturn]] inline void Finding() { std::abort(); }

}  // namespace kzfuzz

#endif  // KZ_FUZZ_FUZZ_HOST_H
