#include "tool/conversionRun.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/fileIdentity.h"
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

// One line of the run, printf style.
__attribute__((format(printf, 1, 2))) std::string line(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    char text[512];
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
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

void setUpOutput(vXfsFile& clip, const char* name, int width, int height, DMimagepacking packing, int32_t frames)
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

// The input: opened, described in the information line, and checked in
// everything its header decides.
std::string planInput(const RunSettings& settings, ConversionPlan& plan)
{
    vXfsFile& pal = plan.palClip;
    pal.SetName(settings.palName);
    if (!pal.Open("r"))
        return "Unable to open PAL file\n";
    plan.width = pal.GetWidth();
    plan.height = pal.GetHeight();
    plan.frames = pal.GetNumFrames();
    std::printf("PAL file: %ld frames [%dx%d]\n", static_cast<long>(plan.frames), plan.width, plan.height);

    if (plan.frames < 0)
        return line("PAL file has a negative frame count (%ld)\n", static_cast<long>(plan.frames));
    if (plan.height < 2)
        return line("PAL file has %d lines: at least 2 are needed\n", plan.height);
    pal.GetImageSize(0, plan.palSlot);
    if (plan.palSlot <= 0)
        return "PAL file has no valid frame size\n";
    plan.palPicture = int64_t{plan.width >> 1} * 4 * plan.height;
    if (plan.palSlot < plan.palPicture)
        return line("PAL file frames of %d bytes cannot hold %dx%d 4:2:2 pictures\n", plan.palSlot, plan.width,
                    plan.height);
    int maxTransfer = 0;
    pal.IOCtl(XFS_GET_MAX_IO_SIZE, &maxTransfer);
    plan.blockFrames = maxTransfer / plan.palSlot;
    if (plan.blockFrames <= 0)
        return line("PAL frames of %d bytes do not fit in one transfer of %d bytes\n", plan.palSlot, maxTransfer);
    const int64_t present = pal.FramesPresent(plan.palPicture);
    if (present < plan.frames)
        return line("PAL file is truncated: %d of %ld frames present\n", static_cast<int>(present),
                    static_cast<long>(plan.frames));
    return {};
}

// The outputs, described and claimed: each is opened as it is, compared
// with the input and with the other output by the files that are open (a
// name may lead anywhere, and may be changed to lead elsewhere while we
// look), and read as far as it is a clip already.
std::string planOutputs(const RunSettings& settings, ConversionPlan& plan)
{
    const int reducedWidth = plan.reducing ? plan.width / plan.scale : 0;
    const int reducedHeight = plan.reducing ? kNtscLines / plan.scale : 0;
    if (isBrokenLink(settings.ntscName))
        return line("NTSC file %s is a broken symbolic link\n", settings.ntscName);
    setUpOutput(plan.ntscClip, settings.ntscName, plan.width, kNtscLines, DM_IMAGE_PACKING_CbYCrY, plan.frames);
    if (plan.ntscClip.ImageSize() <= 0)
        return line("NTSC file cannot hold %dx%d frames\n", plan.width, kNtscLines);
    if (plan.reducing) {
        if (isBrokenLink(settings.reducedName))
            return line("Scaled file %s is a broken symbolic link\n", settings.reducedName);
        if (fsSameDestination(settings.ntscName, settings.reducedName))
            return "NTSC file and scaled file are the same\n";
        setUpOutput(plan.reducedClip, settings.reducedName, reducedWidth, reducedHeight, DM_IMAGE_PACKING_BGR,
                    plan.frames);
        if (plan.reducedClip.ImageSize() <= 0)
            return line("Scaled file cannot hold %dx%d frames\n", reducedWidth, reducedHeight);
    }

    const FileIdentity palFile = plan.palClip.Identity();
    const int ntscClaim = plan.ntscClip.ClaimForWriting(&palFile, 1);
    if (ntscClaim < 0)
        return "PAL file and NTSC file are the same\n";
    if (ntscClaim == 0)
        return "Unable to open NTSC file\n";
    if (!describedAsAsked(plan.ntscClip, plan.width, kNtscLines, DM_IMAGE_PACKING_CbYCrY))
        return "NTSC file is a preserved clip of another format\n";
    if (plan.reducing) {
        const FileIdentity taken[2] = {palFile, plan.ntscClip.Identity()};
        const int reducedClaim = plan.reducedClip.ClaimForWriting(taken, 2);
        if (reducedClaim < 0)
            return fsSameFile(plan.reducedClip.Identity(), palFile) ? "PAL file and scaled file are the same\n"
                                                                    : "NTSC file and scaled file are the same\n";
        if (reducedClaim == 0)
            return "Unable to open scaled file\n";
        if (!describedAsAsked(plan.reducedClip, reducedWidth, reducedHeight, DM_IMAGE_PACKING_BGR))
            return "Scaled file is a preserved clip of another format\n";
    }

    // The slots as the outputs will have them: a clip that is replaced keeps
    // its block size, a preserved one all its own parameters.
    plan.ntscSlot = plan.ntscClip.ImageSize();
    plan.reducedSlot = plan.reducing ? plan.reducedClip.ImageSize() : 0;
    if (plan.ntscSlot <= 0)
        return line("NTSC file cannot hold %dx%d frames\n", plan.width, kNtscLines);
    if (plan.reducing && plan.reducedSlot <= 0)
        return line("Scaled file cannot hold %dx%d frames\n", reducedWidth, reducedHeight);
    return {};
}

// One block buffer, or the line that says why there is none. One
// transfer's byte count is a 32-bit int, so no block may be larger.
std::string provide(AlignedMemory& buffer, int64_t size, int alignment)
{
    if (size > 0 && size <= INT32_MAX &&
        buffer.Allocate(static_cast<size_t>(size), static_cast<size_t>(alignment), true))
        return {};
    return line("Unable to allocate block buffers (%lld bytes aligned to %d)\n", static_cast<long long>(size),
                alignment);
}

// Direct transfers need buffers aligned to what the clips' file systems
// ask for, which may be more than -a; the larger of the two is used. They
// are also aligned to whole memory pages: the file system accepts direct
// transfers from 512-byte boundaries, but each page of such a buffer then
// straddles two pages of the transfer and the device receives many small
// pieces (bench/run-e2e shows the difference). An output that needs more
// alignment than a page (none does on Linux) is still written: the clip
// store moves an unaligned buffer through the cache.
std::string planBuffers(int alignment, ConversionPlan& plan)
{
    plan.bufferAlignment = std::max({alignment, memAlignment(plan.palClip), pageSize()});
    // A clip shorter than one block never fills a whole block buffer: the
    // buffers hold no more frames than the clip has (at least one), while
    // the blocks themselves stay as large as one transfer allows.
    const int64_t frames = std::clamp<int64_t>(plan.frames, 1, plan.blockFrames);
    for (auto [buffer, slot] :
         {std::pair{&plan.palBlock, plan.palSlot}, std::pair{&plan.palNext, plan.palSlot},
          std::pair{&plan.ntscBlock, plan.ntscSlot}, std::pair{&plan.reducedBlock, plan.reducedSlot}})
        if (slot > 0)
            if (std::string refusal = provide(*buffer, frames * slot, plan.bufferAlignment); !refusal.empty())
                return refusal;
    return {};
}

}  // namespace

std::string planConversion(const RunSettings& settings, ConversionPlan& plan)
{
    plan.reducing = settings.reducedName[0] != '\0';
    plan.scale = settings.scale;
    if (!isPowerOfTwo(settings.alignment))
        return line("Alignment %d is not supported for the block buffers (use a power of two)\n", settings.alignment);
    for (auto step : {planInput, planOutputs})
        if (std::string refusal = step(settings, plan); !refusal.empty())
            return refusal;
    return planBuffers(settings.alignment, plan);
}

std::string executeConversion(ConversionPlan& plan)
{
    // Only now does anything on disk change.
    if (!plan.ntscClip.Open("w"))
        return "Unable to open NTSC file\n";
    allocateImages(plan.ntscClip, plan.frames);
    if (plan.reducing) {
        if (!plan.reducedClip.Open("w"))
            return "Unable to open scaled file\n";
        allocateImages(plan.reducedClip, plan.frames);
    }

    // The block loop (tool/blockPipeline.h) converts a block on a second
    // thread while it reads the next; reads, writes and messages stay here.
    void* const reducedData = plan.reducing ? plan.reducedBlock.Data() : nullptr;
    Progress progress(plan.frames);
    BlockSteps steps;
    // The next block is read while the one before is converted; the store's
    // messages about a failed read are held until the loop reaches it.
    plan.palClip.HoldReports(true);
    steps.read = [&](int first, int last, void* block) {
        return loadBlock(plan.palClip, first, last, plan.palSlot, block, plan.palPicture);
    };
    steps.reportRead = [&] { plan.palClip.ReleaseReports(); };
    steps.convert = [&](void* block, int first, int last) {
        convert(block, plan.ntscBlock.Data(), reducedData, last - first + 1, plan.width, plan.height, kNtscLines,
                plan.scale, plan.palSlot, plan.ntscSlot, plan.reducedSlot);
    };
    // Both outputs, or the run stops.
    steps.write = [&](int first, int last) -> const char* {
        if (!plan.ntscClip.PutImagesBlock(first, last, plan.ntscSlot, plan.ntscBlock.Data()))
            return "Unable to save NTSC images\n";
        if (plan.reducing && !plan.reducedClip.PutImagesBlock(first, last, plan.reducedSlot, reducedData))
            return "Unable to scaled images\n";
        progress.Update(last + 1);
        return nullptr;
    };
    void* const palData[2] = {plan.palBlock.Data(), plan.palNext.Data()};
    const char* failure = streamBlocks(plan.frames, plan.blockFrames, palData, steps);
    progress.Clear();
    if (failure != nullptr)
        return failure;

    plan.palClip.Close();
    plan.ntscClip.Close();
    if (plan.reducing)
        plan.reducedClip.Close();
    return {};
}
