#include "image/quart.h"

#include <cstddef>
#include <new>

// Image buffers come from the array allocator. A size the allocator cannot
// serve (or a negative one) gives a null block instead of an exception, so
// that callers see a null image rather than a crash.
void* newMem(int size)
{
    if (size < 0)
        return nullptr;
    return new (std::nothrow) char[static_cast<std::size_t>(size)];
}

void delMem(void* block)
{
    delete[] static_cast<char*>(block);
}
