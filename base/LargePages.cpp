#include "base/LargePages.h"

#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace largepages {

void* allocate()
{
    void* block = ::operator new(kBlockBytes, std::align_val_t{kBlockBytes}, std::nothrow);
#ifdef __linux__
    // Only a hint: without transparent huge pages the block still works.
    if (block)
        ::madvise(block, kBlockBytes, MADV_HUGEPAGE);
#endif
    return block;
}

void release(void* block) { ::operator delete(block, std::align_val_t{kBlockBytes}); }

}  // namespace largepages
