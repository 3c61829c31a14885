// Memory for big, long-lived structures that are filled at once (the symbol
// tree's nodes): blocks aligned to 2 MiB and, where the system offers it,
// backed by large pages. Filling a fresh tree of hundreds of megabytes was
// dominated by page faults on 4 KiB pages.
#pragma once

#include <cstddef>

namespace largepages {

inline constexpr std::size_t kBlockBytes = std::size_t(2) << 20;

// A block of kBlockBytes, or nullptr. Release it with release().
void* allocate();
void release(void* block);

}  // namespace largepages
