#include "tool/vclip/clipAccess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tool/vclip/pictures.h"

namespace {

constexpr size_t kBufferAlignment = 4096;
constexpr unsigned char kClipMagic[4] = {0x00, 0x06, 0x09, 0xCE};

// Whether the file starts as a clip does, read without the store's own
// messages on standard output.
bool looksLikeClip(const char* path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false;
    unsigned char magic[4] = {};
    const bool clip = read(fd, magic, 4) == 4 && std::memcmp(magic, kClipMagic, 4) == 0;
    close(fd);
    return clip;
}

}  // namespace

FrameBuffer::FrameBuffer(int size) : length(size > 0 ? size : 0)
{
    void* memory = nullptr;
    if (length > 0 && posix_memalign(&memory, kBufferAlignment, static_cast<size_t>(length)) == 0) {
        bytes = static_cast<uint8_t*>(memory);
        std::memset(bytes, 0, static_cast<size_t>(length));
    } else {
        length = 0;
    }
}

FrameBuffer::~FrameBuffer() { std::free(bytes); }

bool sameFile(const char* a, const char* b)
{
    struct stat sa, sb;
    return stat(a, &sa) == 0 && stat(b, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool openForReading(vXfsFile& clip, const char* path)
{
    struct stat st;
    if (stat(path, &st) != 0) {
        std::fprintf(stderr, "vclip: %s: %s\n", path, std::strerror(errno));
        return false;
    }
    if (!S_ISREG(st.st_mode) || !looksLikeClip(path)) {
        std::fprintf(stderr, "vclip: %s is not a clip file\n", path);
        return false;
    }
    clip.SetName(path);
    if (!clip.Open("r")) {
        std::fprintf(stderr, "vclip: unable to open clip %s\n", path);
        return false;
    }
    return true;
}

bool createClip(vXfsFile& clip, const char* path, const ClipFormat& format, int32_t frames,
                const char* source)
{
    struct stat st;
    if (lstat(path, &st) == 0) {
        if (source && sameFile(path, source)) {
            std::fprintf(stderr, "vclip: %s is the input file; it is left as it is\n", path);
            return false;
        }
        if (stat(path, &st) != 0) {
            std::fprintf(stderr, "vclip: %s is a broken symbolic link; nothing written\n", path);
            return false;
        }
        if (!S_ISREG(st.st_mode) || !looksLikeClip(path)) {
            std::fprintf(stderr, "vclip: %s exists and is not a clip file; it is left as it is\n", path);
            return false;
        }
        vXfsFile existing;
        if (!openForReading(existing, path))
            return false;
        const bool preserved = existing.Replaceable() == 0;
        existing.Close();
        if (preserved) {
            std::fprintf(stderr, "vclip: %s is a preserved clip; it is left as it is\n", path);
            return false;
        }
    }
    clip.SetName(path);
    clip.SetSize(format.width, format.height);
    clip.SetImageFormat(format.packing);
    clip.SetImageRate(format.rate);
    clip.SetInterlacing(format.interlacing);
    clip.SetImageLenght(frames);
    if (clip.ImageSize() <= 0) {
        std::fprintf(stderr, "vclip: no frame size for %dx%d pictures of packing %d\n", format.width,
                     format.height, format.packing);
        return false;
    }
    if (!clip.Open("w")) {
        std::fprintf(stderr, "vclip: unable to create clip %s\n", path);
        return false;
    }
    return true;
}

int64_t pictureBytes(const vXfsFile& clip)
{
    if (clip.GetImageFormat() == DM_IMAGE_PACKING_CbYCrY)
        return yuv422Bytes(clip.GetWidth(), clip.GetHeight());
    if (clip.GetImageFormat() == DM_IMAGE_PACKING_BGR)
        return int64_t{clip.GetWidth()} * 3 * clip.GetHeight();
    return clip.ImageSize();
}

int64_t framesPresent(const vXfsFile& clip)
{
    const int slot = clip.ImageSize();
    const int64_t firstEnd = int64_t{clip.DataOffset()} + pictureBytes(clip);
    const int64_t size = clip.FileSizeBytes();
    if (slot <= 0 || size < firstEnd)
        return 0;
    return (size - firstEnd) / slot + 1;
}

bool readFrame(vXfsFile& clip, int frame, FrameBuffer& buffer)
{
    if (frame < 0 || frame >= clip.GetNumFrames()) {
        std::fprintf(stderr, "vclip: frame %d is not in the clip (it has %d frames)\n", frame,
                     clip.GetNumFrames());
        return false;
    }
    if (!clip.GetImage(frame, buffer.data(), buffer.size())) {
        std::fprintf(stderr, "vclip: unable to read frame %d\n", frame);
        return false;
    }
    if (clip.LastTransferBytes() < pictureBytes(clip)) {
        std::fprintf(stderr, "vclip: frame %d is missing: the file is truncated\n", frame);
        return false;
    }
    return true;
}

bool writeFrame(vXfsFile& clip, int frame, FrameBuffer& buffer)
{
    if (!clip.PutImage(frame, buffer.data(), buffer.size())) {
        std::fprintf(stderr, "vclip: unable to write frame %d\n", frame);
        return false;
    }
    return true;
}
