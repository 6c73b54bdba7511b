#include "platform/alignedMemory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

AlignedMemory& AlignedMemory::operator=(AlignedMemory&& other) noexcept
{
    if (this != &other) {
        Release();
        data_ = other.data_;
        size_ = other.size_;
        other.data_ = nullptr;
        other.size_ = 0;
    }
    return *this;
}

bool AlignedMemory::Allocate(size_t bytes, size_t alignment, bool largePages)
{
    Release();
    if (alignment < sizeof(void*))
        alignment = sizeof(void*);
    size_t made = bytes > 0 ? bytes : 1;
    void* memory = nullptr;
#if defined(MADV_HUGEPAGE)
    // Aligned to the large page and rounded up to whole large pages, so
    // that the system can back the buffer with them.
    constexpr size_t largePage = size_t{2} << 20;
    if (largePages && made >= largePage && alignment <= largePage) {
        const size_t rounded = (made + largePage - 1) / largePage * largePage;
        if (posix_memalign(&memory, largePage, rounded) == 0) {
            madvise(memory, rounded, MADV_HUGEPAGE);  // a hint; refused is fine
            made = rounded;
        } else {
            memory = nullptr;
        }
    }
#else
    (void)largePages;
#endif
    if (memory == nullptr && posix_memalign(&memory, alignment, made) != 0)
        return false;
    std::memset(memory, 0, made);
    data_ = memory;
    size_ = bytes;
    return true;
}

void AlignedMemory::Release()
{
    std::free(data_);
    data_ = nullptr;
    size_ = 0;
}
