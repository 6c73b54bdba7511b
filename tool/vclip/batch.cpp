// vclip batch: the command line, the pending clips, the plan for other
// engines and the manifest. The converters themselves run in batchRun.cpp.
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "platform/uniqueFd.h"
#include "tool/vclip/batch.h"
#include "tool/vclip/commands.h"
#include "tool/vclip/messages.h"

namespace fs = std::filesystem;

namespace {

const char* const kManifestHeader = "input\tntsc\treduced\tframes\toutcome\tmessage\tseconds\n";

int processors()
{
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0)
        return CPU_COUNT(&set);
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

std::string ownExecutable()
{
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    return ec ? std::string("vclip") : self.string();
}

// The converter: --converter, else $VCLIP_PAL2NTSC, else pal2ntsc beside
// vclip's own executable.
std::string converterOf(const Arguments& args)
{
    if (args.Has("converter"))
        return args.Get("converter");
    if (const char* named = std::getenv("VCLIP_PAL2NTSC"); named != nullptr && *named != '\0')
        return named;
    return (fs::path(ownExecutable()).parent_path() / "pal2ntsc").string();
}

bool readSettings(const Arguments& args, BatchSettings& s)
{
    if (args.operands.size() != 2)
        return report("batch takes a source and a destination folder; see 'vclip batch --help'");
    s.source = args.operands[0];
    s.destination = args.operands[1];
    s.reduced = args.Has("reduced") ? args.Get("reduced") : "";
    s.jobs = processors();
    if (args.Has("scale") && (!toInt(args.Get("scale"), 2, 4, s.scale) || s.scale == 3))
        return report("--scale must be 2 or 4, not '%s'", args.Get("scale").c_str());
    if (args.Has("jobs") && !toInt(args.Get("jobs"), 1, 1024, s.jobs))
        return report("--jobs must be a number from 1 to 1024, not '%s'", args.Get("jobs").c_str());
    s.converter = converterOf(args);
    s.manifest = args.Has("manifest") ? args.Get("manifest") : (fs::path(s.destination) / "vclip-batch.tsv").string();
    s.framemd5 = args.Flag("framemd5");
    if (s.framemd5 && !framemd5Available())
        return report("--framemd5 needs libcrypto, which this build of vclip was made without");
    s.force = args.Flag("force");
    std::error_code ec;
    if (!fs::is_directory(s.source, ec))
        return report("%s is not a folder", s.source.c_str());
    if (!foldersApart(s))
        return false;
    if (folderWithin(fs::path(s.manifest).parent_path().string(), s.source))
        return failure("the manifest %s would be inside the source folder %s", s.manifest.c_str(), s.source.c_str()) ==
               0;
    return true;
}

// A clip under the source folder, as --only names it: reached through
// folders only (the walk of the whole folder does not follow links to
// folders either), without reading the rest of the archive.
bool onlyEntry(const BatchSettings& s, const std::string& relative, std::vector<ArchiveEntry>& entries)
{
    const fs::path rel = fs::path(relative).lexically_normal();
    if (rel.empty() || rel.is_absolute() || *rel.begin() == ".." || !rel.has_filename())
        return report("--only takes a path inside the source folder, not '%s'", relative.c_str());
    fs::path folder = s.source;
    for (const fs::path& part : rel.parent_path()) {
        folder /= part;
        std::error_code ec;
        if (!fs::is_directory(fs::symlink_status(folder, ec)))
            return report("%s is not a folder of %s", folder.c_str(), s.source.c_str());
    }
    ArchiveEntry entry;
    entry.relative = rel.string();
    entry.clip = startsAsClipFile((fs::path(s.source) / rel).string());
    if (!entry.clip)
        return report("%s is not a clip under %s", relative.c_str(), s.source.c_str());
    entries.push_back(entry);
    return true;
}

std::string quoted(const std::string& word)
{
    std::string text = "'";
    for (char c : word)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

std::string absolute(const std::string& path) { return fs::absolute(path).lexically_normal().string(); }

// One command line per pending clip, each exiting non-zero when its clip
// fails, for GNU parallel, a cluster's array job or any other engine.
void printPlan(const Arguments& args, const BatchSettings& s, const std::vector<BatchClip>& pending)
{
    std::string common =
        quoted(ownExecutable()) + " batch " + quoted(absolute(s.source)) + " " + quoted(absolute(s.destination));
    if (!s.reduced.empty())
        common += " --reduced " + quoted(absolute(s.reduced)) + " --scale " + std::to_string(s.scale);
    if (args.Has("converter"))
        common += " --converter " + quoted(absolute(s.converter));
    common += " --manifest " + quoted(absolute(s.manifest));
    for (const char* flag : {"framemd5", "force"})
        if (args.Flag(flag))
            common += std::string(" --") + flag;
    for (const BatchClip& clip : pending)
        std::printf("%s --only %s --jobs 1\n", common.c_str(), quoted(clip.relative).c_str());
}

}  // namespace

int commandBatch(const Arguments& args)
{
    BatchSettings settings;
    if (!readSettings(args, settings))
        return 1;
    std::vector<ArchiveEntry> entries;
    if (args.Has("only") ? !onlyEntry(settings, args.Get("only"), entries) : !walkArchive(settings.source, entries))
        return 1;

    std::vector<BatchClip> pending, done;
    {
        const StoreMessagesAside aside;
        for (const ArchiveEntry& entry : entries)
            if (entry.clip) {
                BatchClip clip = batchClipOf(settings, entry.relative);
                (batchClipDone(settings, clip) ? done : pending).push_back(clip);
            }
    }
    if (args.Flag("plan")) {
        printPlan(args, settings, pending);
        return 0;
    }
    if (access(settings.converter.c_str(), X_OK) != 0)
        return failure("cannot run the converter %s: %s (--converter or VCLIP_PAL2NTSC names another)",
                       settings.converter.c_str(), std::strerror(errno));

    BatchManifest manifest;
    if (!makeParentFolders(settings.manifest) || !manifest.Open(settings.manifest))
        return 1;
    size_t others = 0;
    for (const ArchiveEntry& entry : entries)
        if (!entry.clip) {
            std::printf("left alone (not a clip): %s\n", entry.relative.c_str());
            manifest.RecordOther((fs::path(settings.source) / entry.relative).string());
            ++others;
        }
    for (const BatchClip& clip : done)
        manifest.Record(clip, clip.frames, {BatchOutcome::Kind::Skipped, "already complete", 0});
    std::fflush(stdout);
    const int failed = runBatch(settings, pending, manifest);
    std::printf("batch: %zu clips: %zu converted, %zu already complete, %d failed; %zu other files left alone\n",
                pending.size() + done.size(), pending.size() - static_cast<size_t>(failed), done.size(), failed,
                others);
    if (failed > 0)
        return failure("%d of %zu clips failed; see %s", failed, pending.size() + done.size(),
                       settings.manifest.c_str());
    return 0;
}

std::string batchHelp()
{
    return "Usage: vclip batch SRC DST [--reduced RDIR] [--scale 2|4] [--jobs N] [--framemd5]\n"
           "                  [--manifest FILE] [--converter PAL2NTSC] [--force] [--plan] [--only REL]\n"
           "Converts every clip under SRC (recursively) with pal2ntsc into the same relative\n"
           "path under DST, and a reduced copy under RDIR when given (--scale 4, the default,\n"
           "a quarter; 2 a half). N converters run at once (default: the processors this\n"
           "process may use). Files that are not clips are listed and left alone. Each\n"
           "output is written under a temporary name beside its place (.NAME.vclip-partial)\n"
           "and takes its name only when the converter said it succeeded and the clip reads\n"
           "back complete, so a batch stopped at any moment resumes when run again: outputs\n"
           "complete, consistent with their input (the converter's header for it) and not\n"
           "older than it are skipped. SRC is never written; DST and RDIR must not be SRC,\n"
           "lie in it or hold it, nor overlap each other. An existing output is replaced\n"
           "when it is a replaceable clip (any regular file with --force, never a preserved\n"
           "clip).\n"
           "--framemd5 writes OUT.framemd5 beside every output (see 'vclip help framemd5').\n"
           "The manifest (default DST/vclip-batch.tsv) gets one tab-separated line per file\n"
           "and run, appended in one write: input, ntsc, reduced, frames, outcome\n"
           "(converted, skipped, failed, not-a-clip), message (the converter's last line or\n"
           "vclip's reason), seconds. A terminal shows the progress. The exit status is 1\n"
           "when any clip failed.\n"
           "--plan prints, instead, one shell command line per pending clip ('--only REL'),\n"
           "which exits 1 when its clip fails, for GNU parallel or a cluster's array job.\n"
           "The converter is --converter, else $VCLIP_PAL2NTSC, else pal2ntsc beside vclip.\n";
}

// ---------------------------------------------------------------------------
// The manifest

namespace {

// Tabs, line ends and backslashes in a field, written as \t, \n, \r and \\.
std::string field(const std::string& text)
{
    std::string out;
    for (char c : text)
        out += c == '\t' ? "\\t" : c == '\n' ? "\\n" : c == '\r' ? "\\r" : c == '\\' ? "\\\\" : std::string(1, c);
    return out;
}

// Makes the manifest with its header line in one step, so that runs
// starting together never see it without one.
void createManifest(const std::string& path)
{
    UniqueFd fd(fsCreateUnnamed(path.c_str(), O_WRONLY, 0666));
    const size_t length = std::strlen(kManifestHeader);
    if (fd.IsOpen()) {
        if (write(fd.Get(), kManifestHeader, length) == static_cast<ssize_t>(length))
            fsNameUnnamed(fd.Get(), path.c_str());
        return;
    }
    fd.Reset(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (fd.IsOpen() && write(fd.Get(), kManifestHeader, length) != static_cast<ssize_t>(length))
        unlink(path.c_str());
}

}  // namespace

BatchManifest::~BatchManifest()
{
    if (fd_ >= 0)
        close(fd_);
}

bool BatchManifest::Open(const std::string& path)
{
    path_ = path;
    createManifest(path);
    UniqueFd fd(open(path.c_str(), O_RDWR | O_APPEND | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.IsOpen())
        return report("%s: %s", path.c_str(), std::strerror(errno));
    struct stat st;
    std::string head(std::strlen(kManifestHeader), '\0');
    if (fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode))
        return report("%s is not a regular file; it is left as it is", path.c_str());
    bool ours =
        pread(fd.Get(), &head[0], head.size(), 0) == static_cast<ssize_t>(head.size()) && head == kManifestHeader;
    if (!ours && st.st_size == 0 && write(fd.Get(), kManifestHeader, head.size()) == static_cast<ssize_t>(head.size()))
        ours = true;
    if (!ours)
        return report("%s is not a batch manifest; it is left as it is", path.c_str());
    fd_ = fd.Release();
    return true;
}

void BatchManifest::Append(const std::vector<std::string>& fields)
{
    std::string line;
    for (const std::string& f : fields)
        line += (line.empty() ? "" : "\t") + field(f);
    line += '\n';
    if (write(fd_, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        failure("%s: a record could not be written: %s", path_.c_str(), std::strerror(errno));
}

void BatchManifest::Record(const BatchClip& clip, int32_t frames, const BatchOutcome& outcome)
{
    static const char* const kOutcome[] = {"converted", "skipped", "failed", "not-a-clip"};
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.3f", outcome.seconds);
    Append({clip.input, clip.ntsc, clip.reduced, std::to_string(frames), kOutcome[static_cast<int>(outcome.kind)],
            outcome.message, seconds});
}

void BatchManifest::RecordOther(const std::string& input)
{
    Append({input, "", "", "", "not-a-clip", "left alone", "0.000"});
}
