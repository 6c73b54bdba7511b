#include "tool/conversionRun.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "clipfile/vXfsFile.h"
#include "tool/blockConvert.h"
#include "tool/blockPipeline.h"
#include "tool/progress.h"

// What the run refuses, beyond the failures of opening and of the block
// transfers. Every refusal is one line on standard output and ends the
// program with status 0, like the other failures of the tool. Each one comes
// before the first byte of any output changes: the outputs are claimed
// (opened as they are and examined) and the buffers allocated first, and
// only then is an output written, replaced or given space.
//
//   "PAL file and NTSC file are the same\n", "PAL file and scaled file are the same\n",
//   "NTSC file and scaled file are the same\n"
//       also when the names differ but the files the run opened are one, by
//       device and inode: links, /proc/self/fd names, a name switched to
//       point elsewhere while the run looks at it.
//   "Alignment %d is not supported for the block buffers (use a power of two)\n"
//       -a that is zero, negative or not a power of two.
//   "PAL file has a negative frame count (%ld)\n"
//   "PAL file has %d lines: at least 2 are needed\n"
//       each field needs at least one line to blend from.
//   "PAL file has no valid frame size\n"
//       its header describes no frame (frame slot 0): nothing to divide by.
//   "PAL file frames of %d bytes cannot hold %dx%d 4:2:2 pictures\n"
//       the input's packing is not read, but a slot smaller than what the
//       line converter reads would take it past the end of the block.
//   "PAL frames of %d bytes do not fit in one transfer of %d bytes\n"
//       a block frame count of 0.
//   "PAL file is truncated: %d of %ld frames present\n"
//       the file ends before the last frame its header counts; converting
//       would make output frames out of whatever the buffer held before.
//   "NTSC file %s is a broken symbolic link\n", "Scaled file %s is a broken symbolic link\n"
//       writing through it would create a file wherever the link points.
//   "NTSC file and scaled file are the same\n"
//       also two names of one file that does not exist yet ("x" and "./x").
//   "NTSC file cannot hold %dx%d frames\n", "Scaled file cannot hold %dx%d frames\n"
//       a picture size the clip store has no frame size for.
//   "Unable to allocate block buffers (%lld bytes aligned to %d)\n"
//       also a block too large for one 32-bit transfer count.
//   "NTSC file is a preserved clip of another format\n",
//   "Scaled file is a preserved clip of another format\n"
//       an existing clip marked as preserved is opened in place with its own
//       parameters; frames of our size would not fit its slots.

namespace {

constexpr int kNtscLines = 486;

[[noreturn]] __attribute__((format(printf, 1, 2))) void fail(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::fflush(stdout);
    std::exit(0);
}

bool isPowerOfTwo(int value) { return value > 0 && (value & (value - 1)) == 0; }

// A symbolic link whose target does not exist (or cannot be reached).
bool isBrokenLink(const char* path)
{
    struct stat st;
    return lstat(path, &st) == 0 && S_ISLNK(st.st_mode) && stat(path, &st) != 0;
}

int pageSize()
{
    const long size = sysconf(_SC_PAGESIZE);
    return size > 0 && size <= (1 << 30) ? static_cast<int>(size) : 4096;
}

int memAlignment(vXfsFile& clip)
{
    int alignment = 0;
    clip.IOCtl(XFS_GET_MEM_ALIGNMENT, &alignment);
    return alignment;
}

// One block buffer: aligned, cleared when it is allocated, so that the
// padding after every picture in a frame slot goes to the files as zeros.
struct BlockBuffer {
    void* data = nullptr;
    int64_t bytes = 0;
    int alignment = 0;

    BlockBuffer() = default;
    BlockBuffer(const BlockBuffer&) = delete;
    BlockBuffer& operator=(const BlockBuffer&) = delete;
    ~BlockBuffer() { Release(); }

    // Makes sure the buffer holds `size` bytes aligned to `align`. A buffer
    // that already does is kept as it is; so the buffers are normally
    // allocated once, and again only when opening an output clip changed
    // its slot or its alignment. Fails with the allocation message.
    void Provide(int64_t size, int align)
    {
        if (data && bytes >= size && alignment >= align)
            return;
        Release();
        // One transfer's byte count is a 32-bit int.
        void* memory = nullptr;
        if (size <= 0 || size > INT32_MAX)
            fail("Unable to allocate block buffers (%lld bytes aligned to %d)\n",
                 static_cast<long long>(size), align);
        size_t made = static_cast<size_t>(size);
        if (!largePages(memory, made, align) &&
            posix_memalign(&memory, static_cast<size_t>(align), static_cast<size_t>(size)) != 0)
            fail("Unable to allocate block buffers (%lld bytes aligned to %d)\n",
                 static_cast<long long>(size), align);
        std::memset(memory, 0, made);
        data = memory;
        bytes = size;
        alignment = align;
    }

    // A buffer of a few megabytes in large pages: each of its small pages
    // would otherwise be a fault of its own when the buffer is cleared, and
    // on this kind of virtual machine that took 11 to 15 ms per 4 MB
    // buffer, a tenth of a 250-frame run for the four buffers; in 2 MB pages
    // it takes under 1 ms. The buffer is aligned to the large page and its
    // size rounded up to whole large pages (`made`), so that the system can
    // back it with them. Gives false, with nothing allocated, where that is
    // not to be had; the caller then allocates as usual.
    static bool largePages(void*& memory, size_t& made, int align)
    {
#if defined(MADV_HUGEPAGE)
        constexpr size_t largePage = size_t{2} << 20;
        if (made < largePage || static_cast<size_t>(align) > largePage)
            return false;
        const size_t rounded = (made + largePage - 1) / largePage * largePage;
        void* block = nullptr;
        if (posix_memalign(&block, largePage, rounded) != 0)
            return false;
        madvise(block, rounded, MADV_HUGEPAGE);  // a hint; refused is fine
        memory = block;
        made = rounded;
        return true;
#else
        (void)memory;
        (void)made;
        (void)align;
        return false;
#endif
    }

    void Release()
    {
        std::free(data);
        data = nullptr;
        bytes = 0;
    }
};

void setUpOutput(vXfsFile& clip, const char* name, int width, int height, DMimagepacking packing,
                 int32_t frames)
{
    clip.SetName(name);
    clip.SetSize(width, height);
    clip.SetImageFormat(packing);
    clip.SetImageLenght(frames);
}

// A preserved clip keeps its own parameters when opened for writing; ours
// must be the same for the frames to fit.
bool describedAsAsked(const vXfsFile& clip, int width, int height, DMimagepacking packing)
{
    return clip.GetWidth() == width && clip.GetHeight() == height && clip.GetImageFormat() == packing;
}

void allocateImages(vXfsFile& clip, int32_t frames)
{
    clip.IOCtl(XFS_ALLOCATE_IMAGES, reinterpret_cast<void*>(static_cast<uintptr_t>(frames)));
}

// Reads a block and says whether every picture of it came from the file: a
// read that meets the end of the file succeeds with fewer bytes.
bool loadBlock(vXfsFile& clip, int first, int last, int slot, void* block, int64_t pictureBytes)
{
    if (!clip.GetImagesBlock(first, last, slot, block))
        return false;
    const int64_t needed = int64_t{last - first} * slot + pictureBytes;
    return clip.LastTransferBytes() >= needed;
}

}  // namespace

void runConversion(const vString& palName, const vString& ntscName, const vString& reducedName,
                   int scale, int alignment)
{
    vXfsFile palClip;
    vXfsFile ntscClip;
    vXfsFile reducedClip;
    const bool reducing = reducedName.c_str()[0] != '\0';

    if (!isPowerOfTwo(alignment))
        fail("Alignment %d is not supported for the block buffers (use a power of two)\n", alignment);

    palClip.SetName(palName);
    if (!palClip.Open("r"))
        fail("Unable to open PAL file\n");
    const int width = palClip.GetWidth();
    const int height = palClip.GetHeight();
    const int32_t frames = palClip.GetNumFrames();
    std::printf("PAL file: %ld frames [%dx%d]\n", static_cast<long>(frames), width, height);

    // Everything the input's header decides is checked before an output
    // file is opened, and so before anything is written.
    if (frames < 0)
        fail("PAL file has a negative frame count (%ld)\n", static_cast<long>(frames));
    if (height < 2)
        fail("PAL file has %d lines: at least 2 are needed\n", height);
    int palSlot = 0;
    palClip.GetImageSize(0, palSlot);
    if (palSlot <= 0)
        fail("PAL file has no valid frame size\n");
    const int64_t palPicture = int64_t{width >> 1} * 4 * height;
    if (palSlot < palPicture)
        fail("PAL file frames of %d bytes cannot hold %dx%d 4:2:2 pictures\n", palSlot, width, height);
    int maxTransfer = 0;
    palClip.IOCtl(XFS_GET_MAX_IO_SIZE, &maxTransfer);
    const int blockFrames = maxTransfer / palSlot;
    if (blockFrames <= 0)
        fail("PAL frames of %d bytes do not fit in one transfer of %d bytes\n", palSlot, maxTransfer);
    const int64_t present = palClip.FramesPresent(palPicture);
    if (present < frames)
        fail("PAL file is truncated: %d of %ld frames present\n", static_cast<int>(present),
             static_cast<long>(frames));

    // The outputs, described but not yet opened.
    const int reducedWidth = reducing ? width / scale : 0;
    const int reducedHeight = reducing ? kNtscLines / scale : 0;
    if (isBrokenLink(ntscName))
        fail("NTSC file %s is a broken symbolic link\n", ntscName.c_str());
    setUpOutput(ntscClip, ntscName, width, kNtscLines, DM_IMAGE_PACKING_CbYCrY, frames);
    if (ntscClip.ImageSize() <= 0)
        fail("NTSC file cannot hold %dx%d frames\n", width, kNtscLines);
    if (reducing) {
        if (isBrokenLink(reducedName))
            fail("Scaled file %s is a broken symbolic link\n", reducedName.c_str());
        if (fsSameDestination(ntscName, reducedName))
            fail("NTSC file and scaled file are the same\n");
        setUpOutput(reducedClip, reducedName, reducedWidth, reducedHeight, DM_IMAGE_PACKING_BGR, frames);
        if (reducedClip.ImageSize() <= 0)
            fail("Scaled file cannot hold %dx%d frames\n", reducedWidth, reducedHeight);
    }

    // Each output is claimed before any of them changes: opened as it is,
    // compared with the input and with the other output by the files that
    // are open (a name may lead anywhere, and may be changed to lead
    // elsewhere while we look), and read as far as it is a clip already.
    // So every refusal comes before the first byte of an output changes.
    const FileIdentity palFile = palClip.Identity();
    const int ntscClaim = ntscClip.ClaimForWriting(&palFile, 1);
    if (ntscClaim < 0)
        fail("PAL file and NTSC file are the same\n");
    if (ntscClaim == 0)
        fail("Unable to open NTSC file\n");
    if (!describedAsAsked(ntscClip, width, kNtscLines, DM_IMAGE_PACKING_CbYCrY))
        fail("NTSC file is a preserved clip of another format\n");
    if (reducing) {
        const FileIdentity taken[2] = {palFile, ntscClip.Identity()};
        const int reducedClaim = reducedClip.ClaimForWriting(taken, 2);
        if (reducedClaim < 0)
            fail(fsSameFile(reducedClip.Identity(), palFile) ? "PAL file and scaled file are the same\n"
                                                             : "NTSC file and scaled file are the same\n");
        if (reducedClaim == 0)
            fail("Unable to open scaled file\n");
    }
    if (reducing && !describedAsAsked(reducedClip, reducedWidth, reducedHeight, DM_IMAGE_PACKING_BGR))
        fail("Scaled file is a preserved clip of another format\n");

    // The slots as the outputs will have them: a clip that is replaced keeps
    // its block size, a preserved one all its own parameters.
    const int ntscSlot = ntscClip.ImageSize();
    const int reducedSlot = reducing ? reducedClip.ImageSize() : 0;
    if (ntscSlot <= 0)
        fail("NTSC file cannot hold %dx%d frames\n", width, kNtscLines);
    if (reducing && reducedSlot <= 0)
        fail("Scaled file cannot hold %dx%d frames\n", reducedWidth, reducedHeight);

    // Direct transfers need buffers aligned to what the clips' file systems
    // ask for, which may be more than -a; the larger of the two is used.
    // They are also aligned to whole memory pages: the file system accepts
    // direct transfers from 512-byte boundaries, but each page of such a
    // buffer then straddles two pages of the transfer, and the device
    // receives many small pieces. Measured on ext4 over a virtual disk with
    // 250 frames of 720x576: 128-byte (-a default, raised to 512) buffers
    // took 1.1 to 5.4 s, page-aligned ones 0.32 s, mostly in the NTSC
    // writes (90 ms for a 3.5 MB block against 4 ms). An output that turns
    // out to need more alignment than a page (none does on Linux) is still
    // written: the clip store moves an unaligned buffer through the cache.
    // The buffers are allocated here, before any output is opened, so that
    // a refusal leaves the outputs untouched.
    const int bufferAlignment = std::max({alignment, memAlignment(palClip), pageSize()});
    // A clip shorter than one block never fills a whole block buffer: the
    // buffers hold no more frames than the clip has (at least one), while
    // the blocks themselves stay as large as one transfer allows.
    const int bufferFrames = static_cast<int>(std::clamp<int64_t>(frames, 1, blockFrames));
    BlockBuffer palBlock, palNext, ntscBlock, reducedBlock;
    palBlock.Provide(int64_t{bufferFrames} * palSlot, bufferAlignment);
    palNext.Provide(int64_t{bufferFrames} * palSlot, bufferAlignment);
    ntscBlock.Provide(int64_t{bufferFrames} * ntscSlot, bufferAlignment);
    if (reducing)
        reducedBlock.Provide(int64_t{bufferFrames} * reducedSlot, bufferAlignment);

    // Only now does anything on disk change.
    if (!ntscClip.Open("w"))
        fail("Unable to open NTSC file\n");
    allocateImages(ntscClip, frames);
    if (reducing) {
        if (!reducedClip.Open("w"))
            fail("Unable to open scaled file\n");
        allocateImages(reducedClip, frames);
    }

    void* const reducedData = reducing ? reducedBlock.data : nullptr;

    // The block loop (tool/blockPipeline.h) converts a block on a second
    // thread while it reads the next; reads, writes and messages stay here.
    Progress progress(frames);
    BlockSteps steps;
    // The next block is read while the one before is converted; the store's
    // messages about a failed read are held until the loop reaches it.
    palClip.HoldReports(true);
    steps.read = [&](int first, int last, void* block) {
        return loadBlock(palClip, first, last, palSlot, block, palPicture);
    };
    steps.reportRead = [&] { palClip.ReleaseReports(); };
    steps.convert = [&](void* block, int first, int last) {
        convert(block, ntscBlock.data, reducedData, last - first + 1, width, height, kNtscLines, scale, palSlot,
                ntscSlot, reducedSlot);
    };
    // Both outputs, or the run stops.
    steps.write = [&](int first, int last) -> const char* {
        if (!ntscClip.PutImagesBlock(first, last, ntscSlot, ntscBlock.data))
            return "Unable to save NTSC images\n";
        if (reducing && !reducedClip.PutImagesBlock(first, last, reducedSlot, reducedData))
            return "Unable to scaled images\n";
        progress.Update(last + 1);
        return nullptr;
    };
    void* const palData[2] = {palBlock.data, palNext.data};
    if (const char* failure = streamBlocks(frames, blockFrames, palData, steps)) {
        progress.Clear();
        fail("%s", failure);
    }
    progress.Clear();

    palClip.Close();
    ntscClip.Close();
    if (reducing)
        reducedClip.Close();

    palBlock.Release();
    palNext.Release();
    ntscBlock.Release();
    reducedBlock.Release();
}
