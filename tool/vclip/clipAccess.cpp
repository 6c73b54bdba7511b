#include "tool/vclip/clipAccess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "tool/vclip/imageFiles.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/pictures.h"

namespace {

constexpr size_t kBufferAlignment = 4096;

// A clip replaced in place keeps its block size. Clips are laid out in
// blocks of a few kilobytes; a larger block size means a damaged header,
// and every frame buffer would be that large.
constexpr int32_t kLargestBlock = 1 << 20;

bool reportErrno(const std::string& name, int error) { return report("%s: %s", name.c_str(), std::strerror(error)); }

// Why the last transfer failed: the system's reason, when there is one.
std::string reason(int error) { return error != 0 ? std::string(": ") + std::strerror(error) : ""; }

// The file a name is now, links not followed.
FileIdentity identityOfName(const std::string& path)
{
    struct stat st;
    FileIdentity id;
    if (lstat(path.c_str(), &st) == 0) {
        id.device = st.st_dev;
        id.inode = st.st_ino;
        id.known = true;
    }
    return id;
}

// Removes `path` if it is still the file `ours`, and nothing else.
void removeIfOurs(const std::string& path, const FileIdentity& ours)
{
    if (!path.empty() && fsSameFile(identityOfName(path), ours))
        unlink(path.c_str());
}

std::string leafOf(const std::string& path)
{
    std::string leaf = path;
    while (leaf.size() > 1 && leaf.back() == '/')
        leaf.pop_back();
    const size_t slash = leaf.rfind('/');
    return slash == std::string::npos ? leaf : leaf.substr(slash + 1);
}

// A dotted name beside `target` for a file being written, unlikely to be
// taken (whoever names a file there checks).
std::string nameBeside(const std::string& target)
{
    static std::mt19937_64 random{std::random_device{}()};
    char tag[20];
    std::snprintf(tag, sizeof tag, "%08x", static_cast<unsigned>(random()));
    const std::string dir = fsDirectoryOf(target.c_str());
    return (dir == "/" ? "" : dir) + "/." + leafOf(target).substr(0, 200) + ".vclip-" + tag;
}

mode_t newFileMode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// Flushes a directory's entries, so that a file put in place stays there.
void syncDirectoryOf(const std::string& path)
{
    const int dir = open(fsDirectoryOf(path.c_str()).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        fsync(dir);
        close(dir);
    }
}

const char* kindName(OutputKind kind)
{
    switch (kind) {
    case OutputKind::Clip:
        return "a replaceable clip";
    case OutputKind::Y4m:
        return "a YUV4MPEG2 stream";
    case OutputKind::Png:
        return "a PNG picture";
    case OutputKind::Ppm:
        return "a PPM picture";
    case OutputKind::Framemd5:
        return "a framemd5 checksum list";
    default:
        return "a BMP picture";
    }
}

bool startsAsOutput(OutputKind kind, const std::string& head)
{
    switch (kind) {
    case OutputKind::Y4m:
        return head.compare(0, 10, "YUV4MPEG2 ") == 0;
    case OutputKind::Png:
        return startsAsImage(ImageKind::Png, head);
    case OutputKind::Ppm:
        return startsAsImage(ImageKind::Ppm, head);
    case OutputKind::Bmp:
        return startsAsImage(ImageKind::Bmp, head);
    case OutputKind::Framemd5:
        return head.compare(0, 9, "#format: ") == 0;
    default:
        return false;
    }
}

bool appeared(const Destination& d)
{
    return report("%s appeared while the output was written; it is left as it is", d.name.c_str());
}

bool changed(const Destination& d)
{
    return report("%s changed while the output was written; it is left as it is", d.name.c_str());
}

}  // namespace

// Puts the finished file `aside` (the file `ours`) in the destination's
// place. Where nothing was, it must still be so: the name is taken only if
// free. Where a file was, the two are exchanged in one step and the file
// that comes out must be the very one examined (held open all along, so no
// other file can have its inode); if it is not, the exchange is undone and
// nothing is replaced. Only where the file system has neither operation is
// a plain rename made, after a last look.
bool putInPlace(const std::string& aside, const FileIdentity& ours, Destination& d)
{
    const char* target = d.target.c_str();
    if (!d.found.known) {
        if (renameat2(AT_FDCWD, aside.c_str(), AT_FDCWD, target, RENAME_NOREPLACE) == 0)
            return true;
        if (errno == EINVAL || errno == ENOSYS) {
            // A second name, as a hard link, never replaces anything either.
            if (link(aside.c_str(), target) == 0) {
                removeIfOurs(aside, ours);
                return true;
            }
            if (errno != EEXIST && errno != ENOENT) {
                if (identityOfName(d.target).known)
                    return appeared(d);
                if (rename(aside.c_str(), target) == 0)
                    return true;
            }
        }
        return errno == EEXIST ? appeared(d) : reportErrno(d.name, errno);
    }

    if (renameat2(AT_FDCWD, aside.c_str(), AT_FDCWD, target, RENAME_EXCHANGE) == 0) {
        if (fsSameFile(identityOfName(aside), d.found)) {
            unlink(aside.c_str());  // the file that was there, now under our name
            return true;
        }
        // Another file had taken the name: it gets its name back.
        if (renameat2(AT_FDCWD, aside.c_str(), AT_FDCWD, target, RENAME_EXCHANGE) != 0)
            return report("%s changed while the output was written, and could not be put back: "
                          "the file that had the name is now %s",
                          d.name.c_str(), aside.c_str());
        return changed(d);
    }
    if (errno == ENOENT)
        return changed(d);
    if (errno != EINVAL && errno != ENOSYS)
        return reportErrno(d.name, errno);
    if (!fsSameFile(identityOfName(d.target), d.found))
        return changed(d);
    if (rename(aside.c_str(), target) != 0)
        return reportErrno(d.name, errno);
    return true;
}

// ---------------------------------------------------------------------------
// Descriptors and buffers

FrameBuffer::FrameBuffer(int size)
{
    if (size <= 0 || !memory.Allocate(static_cast<size_t>(size), kBufferAlignment))
        memory.Release();  // size() 0: the callers' "out of memory"
}

// ---------------------------------------------------------------------------
// Inputs

bool openInput(const std::string& path, const char* expected, UniqueFd& fd, int64_t& size)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return reportErrno(path, errno);
    auto notRegular = [&] {
        if (S_ISDIR(st.st_mode))
            return report("%s is a directory; %s was expected", path.c_str(), expected);
        return report("%s is not a regular file; %s was expected", path.c_str(), expected);
    };
    if (!S_ISREG(st.st_mode))
        return notRegular();
    fd.Reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.IsOpen())
        return reportErrno(path, errno);
    if (fstat(fd.Get(), &st) != 0)
        return reportErrno(path, errno);
    if (!S_ISREG(st.st_mode)) {
        fd.Reset();
        return notRegular();
    }
    size = st.st_size;
    return true;
}

int64_t readAt(int fd, void* data, int64_t bytes, int64_t at)
{
    auto* into = static_cast<uint8_t*>(data);
    int64_t done = 0;
    while (done < bytes) {
        const ssize_t r = pread(fd, into + done, static_cast<size_t>(bytes - done), at + done);
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            return done > 0 ? done : -1;
        if (r == 0)
            break;
        done += r;
    }
    return done;
}

bool openForReading(vXfsFile& clip, const char* path)
{
    UniqueFd fd;
    int64_t size = 0;
    if (!openInput(path, "a clip file", fd, size))
        return false;
    if (!vXfsFile::StartsAsClip(fd.Get()))
        return report("%s is not a clip file (it does not start with the clip mark)", path);
    fd.Reset();
    clip.SetName(path);
    if (!clip.Open("r"))
        return report("unable to open clip %s", path);
    clip.HoldReports(true);
    return true;
}

// ---------------------------------------------------------------------------
// Frames

int64_t pictureBytes(const vXfsFile& clip)
{
    if (clip.GetImageFormat() == DM_IMAGE_PACKING_CbYCrY)
        return yuv422Bytes(clip.GetWidth(), clip.GetHeight());
    if (clip.GetImageFormat() == DM_IMAGE_PACKING_BGR)
        return int64_t{clip.GetWidth()} * 3 * clip.GetHeight();
    return 0;
}

int64_t framesPresent(const vXfsFile& clip) { return clip.FramesPresent(pictureBytes(clip)); }

bool frameIsPresent(const vXfsFile& clip, const char* path, int64_t frame, int64_t present)
{
    const int32_t count = clip.GetNumFrames();
    if (count < 0)
        return report("%s has an invalid frame count (%d)", path, count);
    if (frame >= count)
        return report("%s: frame %lld is not in the clip (it has %d frames)", path, static_cast<long long>(frame),
                      count);
    if (frame >= present)
        return report("%s: frame %lld is missing: the file holds only %lld of its %d frames", path,
                      static_cast<long long>(frame), static_cast<long long>(present), count);
    return true;
}

bool readFrame(vXfsFile& clip, const char* path, int frame, FrameBuffer& buffer)
{
    const std::string label = std::string(path) + ": frame " + std::to_string(frame);
    if (frame < 0 || frame >= clip.GetNumFrames())
        return report("%s is not in the clip", label.c_str());
    errno = 0;
    if (!clip.GetImage(frame, buffer.data(), buffer.size()))
        return report("%s: unable to read it%s", label.c_str(), reason(errno).c_str());
    const int64_t picture = pictureBytes(clip) > 0 ? pictureBytes(clip) : buffer.size();
    if (clip.LastTransferBytes() < picture)
        return report("%s is missing: the file is cut short", label.c_str());
    return true;
}

// ---------------------------------------------------------------------------
// Destinations

bool examineDestination(const std::string& name, OutputKind kind, const OutputRules& rules, Destination& d)
{
    d = Destination{};
    d.name = name;
    d.target = name;
    struct stat st;
    if (lstat(name.c_str(), &st) != 0)
        return errno == ENOENT ? true : reportErrno(name, errno);

    if (S_ISLNK(st.st_mode)) {
        // A link is written through: the file it finally leads to is what
        // gets replaced (after all the checks below, on that file), and the
        // link stays, as it would for any program that writes through it.
        // Replacing the link itself would quietly unlink the file from
        // wherever the link was meant to take it. A link that leads nowhere
        // is refused: where it would have us write is anyone's guess.
        if (stat(name.c_str(), &st) != 0)
            return report("%s is a symbolic link that leads nowhere; nothing written", name.c_str());
        char* real = realpath(name.c_str(), nullptr);
        if (real == nullptr)
            return reportErrno(name, errno);
        d.target = real;
        std::free(real);
    }
    if (S_ISDIR(st.st_mode))
        return report("%s is a directory; nothing written", name.c_str());
    if (!S_ISREG(st.st_mode))
        return report("%s is not a regular file; it is left as it is", name.c_str());

    d.held.Reset(open(d.target.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | O_NOFOLLOW));
    if (!d.held.IsOpen())
        return errno == ENOENT || errno == ELOOP
                   ? report("%s changed while it was examined; it is left as it is", name.c_str())
                   : reportErrno(name, errno);
    if (fstat(d.held.Get(), &st) != 0)
        return reportErrno(name, errno);
    if (!S_ISREG(st.st_mode))
        return report("%s is not a regular file; it is left as it is", name.c_str());
    d.found = fsIdentityOf(d.held.Get());
    d.mode = st.st_mode & 07777;
    for (const FileIdentity& input : rules.inputs)
        if (fsSameFile(d.found, input))
            return report("%s is the input file; it is left as it is", name.c_str());

    // The clip header's first five words: mark, version, frame count,
    // block size, replaceable.
    std::string head(20, '\0');
    const int64_t got = readAt(d.held.Get(), &head[0], 20, 0);
    if (got < 0)
        return reportErrno(name, errno);
    head.resize(static_cast<size_t>(got));
    const bool clip = vXfsFile::StartsAsClip(d.held.Get());
    if (clip && head.size() < 20)
        return report("%s is a clip whose header is cut short; it is left as it is", name.c_str());
    if (clip && head.compare(16, 4, std::string(4, '\0')) == 0)
        return report("%s is a preserved clip; it is left as it is", name.c_str());

    if (st.st_size == 0)
        d.holds = Destination::Holds::Empty;
    else if (kind == OutputKind::Clip ? clip : startsAsOutput(kind, head))
        d.holds = Destination::Holds::OwnKind;
    else if (rules.force)
        d.holds = Destination::Holds::OtherKind;
    else
        return report("%s is not %s; it is left as it is (--force replaces it)", name.c_str(), kindName(kind));
    return true;
}

// ---------------------------------------------------------------------------
// Clip outputs

ClipOutput::~ClipOutput()
{
    if (finished)
        return;
    if (clip.IsInUse())
        clip.Close();
    clip.DropClaim();
    if (made.known)
        removeIfOurs(writtenAt, made);
}

bool ClipOutput::Create(const std::string& name, const ClipFormat& format, int32_t frames, const OutputRules& rules)
{
    if (!examineDestination(name, OutputKind::Clip, rules, destination))
        return false;
    const Destination::Holds holds = destination.holds;
    aside = streamed || holds == Destination::Holds::Empty || holds == Destination::Holds::OtherKind;
    writtenAt = aside ? nameBeside(destination.target) : name;

    clip.SetName(writtenAt.c_str());
    clip.SetSize(format.width, format.height);
    clip.SetImageFormat(format.packing);
    clip.SetImageRate(format.rate);
    clip.SetInterlacing(format.interlacing);
    clip.SetImageLenght(frames);
    if (clip.ImageSize() <= 0)
        return report("no frame size for %dx%d pictures of packing %d", format.width, format.height,
                      static_cast<int>(format.packing));

    // The clip store opens what it will write and compares it with the
    // inputs before anything changes; what it opened must be what was
    // examined (an existing clip), or a file of its own making.
    const int claim = clip.ClaimForWriting(rules.inputs.data(), static_cast<int>(rules.inputs.size()));
    if (claim < 0)
        return report("%s is the input file; it is left as it is", name.c_str());
    if (claim == 0)
        return report("unable to open %s as a clip to write; it is left as it is", name.c_str());
    if (clip.ClaimKeepsClip()) {
        clip.DropClaim();
        return report("%s is a preserved clip; it is left as it is", name.c_str());
    }
    const FileIdentity claimed = clip.Identity();
    const bool replacing = holds == Destination::Holds::OwnKind && !aside;
    if (replacing ? !fsSameFile(claimed, destination.found) : fsSameFile(claimed, identityOfName(writtenAt))) {
        clip.DropClaim();
        return report("%s changed while it was examined; it is left as it is", name.c_str());
    }
    if (clip.BlockSize() > kLargestBlock) {
        clip.DropClaim();
        return report("%s is laid out in blocks of %d bytes, more than a clip can sensibly have; "
                      "it is left as it is",
                      name.c_str(), static_cast<int>(clip.BlockSize()));
    }
    if (!clip.Open("w"))
        return report("unable to write clip %s", name.c_str());
    clip.HoldReports(true);  // a failed write is told once, by WriteFrame
    if (!replacing)
        made = clip.Identity();
    if (aside)
        fchmod(clip.Descriptor(), destination.found.known ? destination.mode : newFileMode());
    return true;
}

bool ClipOutput::CreateForStream(const std::string& name, const ClipFormat& format, const OutputRules& rules)
{
    streamed = true;
    return Create(name, format, 0, rules);
}

bool ClipOutput::Finish(int32_t frames)
{
    clip.SetImageLenght(frames);
    if (frames != 0 && !clip.IOCtl(XFS_CHANGE_NUM_FRAMES, reinterpret_cast<void*>(static_cast<intptr_t>(frames))))
        return report("%s: unable to write the frame count into the header", destination.name.c_str());
    return Finish();
}

bool ClipOutput::WriteFrame(int frame, FrameBuffer& buffer)
{
    errno = 0;
    if (!clip.PutImage(frame, buffer.data(), buffer.size()))
        return report("%s: unable to write frame %d%s", destination.name.c_str(), frame, reason(errno).c_str());
    return true;
}

bool ClipOutput::Finish()
{
    if (fsync(clip.Descriptor()) != 0)
        return reportErrno(destination.name, errno);
    clip.Close();
    if (aside) {
        if (!putInPlace(writtenAt, made, destination))
            return false;
        syncDirectoryOf(destination.target);
    }
    finished = true;
    return true;
}

// ---------------------------------------------------------------------------
// Whole-file outputs

FileOutput::~FileOutput()
{
    if (!finished && made.known)
        removeIfOurs(asideName, made);
}

bool FileOutput::BeginStandardOutput(const OutputRules& rules)
{
    destination.name = "standard output";
    if (isatty(STDOUT_FILENO) == 1)
        return report("standard output is a terminal; pipe it into a program (ffmpeg -f yuv4mpegpipe -i - ...) "
                      "or name a file");
    const FileIdentity out = fsIdentityOf(STDOUT_FILENO);
    for (const FileIdentity& input : rules.inputs)
        if (fsSameFile(out, input))
            return report("standard output is the input file; nothing written");
    toStandardOutput = true;
    return true;
}

bool FileOutput::Begin(const std::string& name, OutputKind kind, const OutputRules& rules)
{
    if (name == "-" && kind == OutputKind::Y4m)
        return BeginStandardOutput(rules);
    if (!examineDestination(name, kind, rules, destination))
        return false;
    const std::string& target = destination.target;
    file.Reset(fsCreateUnnamed(target.c_str(), O_RDWR, 0666));
    if (!file.IsOpen()) {
        if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
            return reportErrno(name, errno);
        // No nameless files here: a dotted name beside the destination,
        // removed again on every failure.
        std::string pattern = nameBeside(target);
        pattern.replace(pattern.size() - 8, 8, "XXXXXX");
        file.Reset(mkostemp(&pattern[0], O_CLOEXEC));
        if (!file.IsOpen())
            return reportErrno(name, errno);
        asideName = pattern;
        if (!destination.found.known)
            fchmod(file.Get(), newFileMode());
    }
    made = fsIdentityOf(file.Get());
    if (destination.found.known)
        fchmod(file.Get(), destination.mode);
    return true;
}

// Bytes written between sending a file's bytes on to the disk.
constexpr int64_t kSendOnStep = int64_t{4} << 20;

bool FileOutput::Write(const void* data, size_t bytes) { return Write(data, bytes, nullptr, 0); }

bool FileOutput::Write(const void* head, size_t headBytes, const void* data, size_t bytes)
{
    iovec parts[2] = {{const_cast<void*>(head), headBytes}, {const_cast<void*>(data), bytes}};
    const int fd = toStandardOutput ? STDOUT_FILENO : file.Get();
    int first = 0;
    for (;;) {
        while (first < 2 && parts[first].iov_len == 0)
            ++first;
        if (first == 2)
            break;
        const ssize_t r = writev(fd, parts + first, 2 - first);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return reportErrno(destination.name, r < 0 ? errno : EIO);
        written += r;
        // What went out comes off the front.
        for (auto done = static_cast<size_t>(r); done > 0;) {
            const size_t taken = std::min(done, parts[first].iov_len);
            parts[first].iov_base = static_cast<uint8_t*>(parts[first].iov_base) + taken;
            parts[first].iov_len -= taken;
            done -= taken;
            if (parts[first].iov_len == 0)
                ++first;
        }
    }
    // A long file starts on its way to the disk while the rest is made, so
    // that Finish's flush has little left to wait for. Failures show there.
    if (!toStandardOutput && written - sentOn >= kSendOnStep) {
        sync_file_range(fd, sentOn, written - sentOn, SYNC_FILE_RANGE_WRITE);
        sentOn = written;
    }
    return true;
}

bool FileOutput::Finish()
{
    if (toStandardOutput)
        return finished = true;
    if (fsync(file.Get()) != 0)
        return reportErrno(destination.name, errno);
    if (asideName.empty()) {
        if (!destination.found.known) {
            // Nothing was there: the file takes the name, if it is still free.
            if (fsNameUnnamed(file.Get(), destination.target.c_str()) != 0)
                return errno == EEXIST ? appeared(destination) : reportErrno(destination.name, errno);
            syncDirectoryOf(destination.target);
            finished = true;
            return true;
        }
        // A name of its own first, for the exchange.
        for (int attempt = 0; asideName.empty() && attempt < 100; ++attempt) {
            const std::string candidate = nameBeside(destination.target);
            if (fsNameUnnamed(file.Get(), candidate.c_str()) == 0)
                asideName = candidate;
            else if (errno != EEXIST)
                return reportErrno(destination.name, errno);
        }
        if (asideName.empty())
            return reportErrno(destination.name, EEXIST);
    }
    if (!putInPlace(asideName, made, destination))
        return false;
    syncDirectoryOf(destination.target);
    finished = true;
    return true;
}
