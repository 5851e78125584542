// The heap this process holds now, in bytes, for tests of bounded memory
// (the sanitizers' allocators keep what was freed for a while, so that is
// not counted).
#pragma once

#include <malloc.h>

#include <cstddef>
#if defined(VELTRANE_SANITIZED)
#include <sanitizer/allocator_interface.h>
#endif

namespace veltrane::test {

inline size_t heapInUse() {
#if defined(VELTRANE_SANITIZED)
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

} // namespace veltrane::test
