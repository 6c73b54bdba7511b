// The archive side of a batch: what is under the source folder, where each
// clip's outputs go, and whether they are already done.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "platform/uniqueFd.h"
#include "tool/vclip/batch.h"
#include "tool/vclip/clipAccess.h"
#include "tool/vclip/messages.h"

namespace fs = std::filesystem;

namespace {

constexpr int kNtscLines = 486;

FileIdentity identityOfFolder(const std::string& path)
{
    struct stat st;
    FileIdentity id;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        id.device = st.st_dev;
        id.inode = st.st_ino;
        id.known = true;
    }
    return id;
}

}  // namespace

bool startsAsClipFile(const std::string& path)
{
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat st;
    return fd.IsOpen() && fstat(fd.Get(), &st) == 0 && S_ISREG(st.st_mode) && vXfsFile::StartsAsClip(fd.Get());
}

// Where `outer` exists, every
// folder from `inner` (or the part of it that exists, links resolved) up to
// the root is compared with it by identity, which also sees through bind
// mounts and other names of one folder; otherwise the resolved names.
bool folderWithin(const std::string& inner, const std::string& outer)
{
    std::error_code ec;
    const fs::path in = fs::weakly_canonical(fs::absolute(inner, ec), ec);
    const FileIdentity out = identityOfFolder(outer);
    if (!out.known) {
        const std::string a = in.string(), b = fs::weakly_canonical(fs::absolute(outer, ec), ec).string();
        return a == b || (a.size() > b.size() && a.compare(0, b.size(), b) == 0 && (a[b.size()] == '/' || b == "/"));
    }
    for (fs::path p = in;; p = p.parent_path()) {
        if (fsSameFile(identityOfFolder(p.string()), out))
            return true;
        if (p == p.parent_path())
            return false;
    }
}

namespace {

bool sameTimeOrLater(const struct timespec& a, const struct timespec& b)
{
    return a.tv_sec > b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec >= b.tv_nsec);
}

// An output written no earlier than its input was last changed.
bool newerThanInput(const std::string& output, const struct stat& input)
{
    struct stat st;
    return stat(output.c_str(), &st) == 0 && sameTimeOrLater(st.st_mtim, input.st_mtim);
}

std::string joined(const std::string& folder, const std::string& relative)
{
    return folder.empty() ? "" : (fs::path(folder) / relative).string();
}

}  // namespace

bool walkArchive(const std::string& source, std::vector<ArchiveEntry>& entries)
{
    std::error_code ec;
    fs::recursive_directory_iterator it(source, fs::directory_options::none, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        if (it->is_directory(ec))
            continue;
        ArchiveEntry entry;
        entry.relative = fs::relative(it->path(), source, ec).string();
        entry.clip = it->is_regular_file(ec) && startsAsClipFile(it->path().string());
        entries.push_back(entry);
    }
    if (ec)
        return report("%s: %s", source.c_str(), ec.message().c_str());
    std::sort(entries.begin(), entries.end(),
              [](const ArchiveEntry& a, const ArchiveEntry& b) { return a.relative < b.relative; });
    return true;
}

bool foldersApart(const BatchSettings& settings)
{
    struct Folder {
        const std::string* path;
        const char* what;
    };
    const Folder folders[] = {
        {&settings.source, "source"}, {&settings.destination, "destination"}, {&settings.reduced, "reduced folder"}};
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = i + 1; j < 3; ++j) {
            const Folder &a = folders[i], &b = folders[j];
            if (a.path->empty() || b.path->empty())
                continue;
            if (folderWithin(*b.path, *a.path) || folderWithin(*a.path, *b.path))
                return report("the %s %s and the %s %s overlap (one is, holds or lies inside the other)", a.what,
                              a.path->c_str(), b.what, b.path->c_str());
        }
    return true;
}

bool makeParentFolders(const std::string& path)
{
    std::error_code ec;
    const fs::path parent = fs::path(path).parent_path();
    if (!parent.empty())
        fs::create_directories(parent, ec);
    return !ec || report("%s: %s", parent.c_str(), ec.message().c_str());
}

StoreMessagesAside::StoreMessagesAside()
{
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    if (saved_ >= 0)
        dup2(STDERR_FILENO, STDOUT_FILENO);
}

StoreMessagesAside::~StoreMessagesAside()
{
    std::fflush(stdout);
    if (saved_ >= 0) {
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
}

OutputShape ntscShape(int inputWidth) { return {inputWidth, kNtscLines, DM_IMAGE_PACKING_CbYCrY}; }

OutputShape reducedShape(int inputWidth, int scale)
{
    return {inputWidth / scale, kNtscLines / scale, DM_IMAGE_PACKING_BGR};
}

bool openInputClip(vXfsFile& clip, const std::string& path)
{
    if (!startsAsClipFile(path))
        return false;
    const StoreMessagesAside aside;
    clip.SetName(path.c_str());
    if (!clip.Open("r"))
        return false;
    clip.HoldReports(true);
    return true;
}

std::string outputProblem(const std::string& path, const OutputShape& shape, int32_t frames)
{
    vXfsFile clip;
    if (access(path.c_str(), F_OK) != 0)
        return "missing";
    if (!openInputClip(clip, path))
        return "not a readable clip";
    // A new clip object described as the converter describes its outputs.
    vXfsFile expected;
    expected.SetSize(shape.width, shape.height);
    expected.SetImageFormat(shape.packing);
    expected.SetImageLenght(frames);
    double rate = 0, expectedRate = 0;
    int interlacing = 0, expectedInterlacing = 0;
    clip.GetImageRate(rate);
    expected.GetImageRate(expectedRate);
    clip.GetInterlacing(interlacing);
    expected.GetInterlacing(expectedInterlacing);
    const bool same = clip.Version() == expected.Version() && clip.GetNumFrames() == frames &&
                      clip.GetWidth() == shape.width && clip.GetHeight() == shape.height &&
                      clip.GetImageFormat() == shape.packing && clip.BlockSize() == expected.BlockSize() &&
                      clip.Replaceable() == expected.Replaceable() && rate == expectedRate &&
                      interlacing == expectedInterlacing && clip.ImageSize() == expected.ImageSize();
    if (!same)
        return "its header is not the converter's for this input (" + std::to_string(clip.GetWidth()) + "x" +
               std::to_string(clip.GetHeight()) + ", packing " + std::to_string(clip.GetImageFormat()) + ", " +
               std::to_string(clip.GetNumFrames()) + " frames)";
    const int64_t present = framesPresent(clip);
    if (present < frames)
        return std::to_string(present) + " of " + std::to_string(frames) + " frames present";
    return {};
}

BatchClip batchClipOf(const BatchSettings& settings, const std::string& relative)
{
    BatchClip clip;
    clip.relative = relative;
    clip.input = joined(settings.source, relative);
    clip.ntsc = joined(settings.destination, relative);
    clip.reduced = joined(settings.reduced, relative);
    return clip;
}

bool batchClipDone(const BatchSettings& settings, BatchClip& clip)
{
    struct stat input;
    std::vector<std::string> outputs{clip.ntsc};
    if (!clip.reduced.empty())
        outputs.push_back(clip.reduced);
    // A missing output settles it without reading the input.
    for (const std::string& output : outputs)
        if (access(output.c_str(), F_OK) != 0 || (settings.framemd5 && access((output + ".framemd5").c_str(), F_OK)))
            return false;
    vXfsFile in;
    if (stat(clip.input.c_str(), &input) != 0 || !openInputClip(in, clip.input) || in.GetNumFrames() < 0)
        return false;
    clip.frames = in.GetNumFrames();
    const int width = in.GetWidth();
    for (const std::string& output : outputs) {
        const OutputShape shape = output == clip.ntsc ? ntscShape(width) : reducedShape(width, settings.scale);
        if (!newerThanInput(output, input) || !outputProblem(output, shape, clip.frames).empty())
            return false;
    }
    return true;
}

std::string partialNameOf(const std::string& output)
{
    const fs::path path(output);
    return (path.parent_path() / ("." + path.filename().string() + ".vclip-partial")).string();
}
