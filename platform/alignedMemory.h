// Memory for frames on their way to and from the disk: aligned for direct
// transfers, cleared when it is had (so the padding of every frame slot
// goes to the files as zeros), and released with its owner.
#pragma once

#include <cstddef>
#include <cstdint>

class AlignedMemory {
public:
    AlignedMemory() = default;
    ~AlignedMemory() { Release(); }
    AlignedMemory(const AlignedMemory&) = delete;
    AlignedMemory& operator=(const AlignedMemory&) = delete;
    AlignedMemory(AlignedMemory&& other) noexcept { *this = static_cast<AlignedMemory&&>(other); }
    AlignedMemory& operator=(AlignedMemory&& other) noexcept;

    // `bytes` cleared bytes aligned to `alignment` (a power of two), in
    // place of what was held. With largePages, a buffer of a few megabytes
    // is put in 2 MB pages where the system has them: each small page would
    // otherwise be a fault of its own when the buffer is cleared (on virtual
    // machines a tenth of a short run). False, holding nothing, when the
    // memory cannot be had.
    bool Allocate(size_t bytes, size_t alignment, bool largePages = false);
    void Release();

    void* Data() const { return data_; }
    unsigned char* Bytes() const { return static_cast<unsigned char*>(data_); }
    size_t Size() const { return size_; }

private:
    void* data_ = nullptr;
    size_t size_ = 0;
};
