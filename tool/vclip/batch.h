// Whole archives: every clip under a source folder converted by pal2ntsc
// into the same relative path under a destination folder (and a folder of
// reduced copies), N converters at a time, with a manifest of outcomes.
// Outputs already complete and consistent with their input are skipped, so
// a batch stopped at any moment picks up where it was when run again.
//
// A clip is converted under a temporary name in its destination folder and
// takes its final name only once the converter said it succeeded and the
// output reads back complete: a final name never holds a partial output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "clipfile/vXfsFile.h"
#include "platform/fileIdentity.h"

struct BatchSettings {
    std::string source, destination, reduced;  // folders; reduced empty: none
    int scale = 4;
    int jobs = 1;
    std::string converter;  // the pal2ntsc to run
    std::string manifest;   // the manifest file
    bool framemd5 = false;  // write OUT.framemd5 beside every output
    bool force = false;     // outputs may replace files of another kind
};

// One file found under the source folder.
struct ArchiveEntry {
    std::string relative;  // path under the source folder
    bool clip = false;     // starts as a clip; other files are left alone
};

// A regular file (links followed) that starts as a clip.
bool startsAsClipFile(const std::string& path);

// Every regular file under `source`, recursively (links to files followed,
// links to folders not), sorted by relative path. False, after the error
// line, when the folder cannot be read.
bool walkArchive(const std::string& source, std::vector<ArchiveEntry>& entries);

// Refuses destination folders that are the source folder, lie inside it,
// hold it, or overlap each other, compared by the folders themselves (device
// and inode of every folder up to the root), not by their names.
bool foldersApart(const BatchSettings& settings);

// Whether the folder `inner` is `outer` or lies inside it (the same test).
bool folderWithin(const std::string& inner, const std::string& outer);

// The folder `path` would be in, made with its parents where missing.
bool makeParentFolders(const std::string& path);

// While alive, the clip store's messages (which it prints on standard
// output) go to standard error, so that standard output holds only what the
// command means to say there.
class StoreMessagesAside {
public:
    StoreMessagesAside();
    ~StoreMessagesAside();
    StoreMessagesAside(const StoreMessagesAside&) = delete;
    StoreMessagesAside& operator=(const StoreMessagesAside&) = delete;

private:
    int saved_ = -1;
};

// What the converter makes of an input: the outputs' size and packing.
struct OutputShape {
    int width = 0, height = 0;
    DMimagepacking packing = DM_IMAGE_PACKING_CbYCrY;
};
OutputShape ntscShape(int inputWidth);
OutputShape reducedShape(int inputWidth, int scale);

// Why the clip at `path` is not what the converter writes for an input of
// `frames` frames: a header other than the converter's, or frames missing.
// Empty when it is complete and consistent.
std::string outputProblem(const std::string& path, const OutputShape& shape, int32_t frames);

// Opens an input clip without a word on standard output. False when it
// cannot be read as a clip.
bool openInputClip(vXfsFile& clip, const std::string& path);

// The outputs of one clip of the archive.
struct BatchClip {
    std::string relative, input, ntsc, reduced;  // reduced empty: none
    int32_t frames = 0;                          // from the input's header, once read
};
BatchClip batchClipOf(const BatchSettings& settings, const std::string& relative);

// Whether the clip's outputs are all there, complete, consistent with the
// input and not older than it (and with their frame checksums, when asked).
bool batchClipDone(const BatchSettings& settings, BatchClip& clip);

// The name a clip's output has while it is written.
std::string partialNameOf(const std::string& output);

// How one clip went.
struct BatchOutcome {
    enum class Kind { Converted, Skipped, Failed, NotClip } kind = Kind::Failed;
    std::string message;  // the converter's last line, or ours
    double seconds = 0;
};

// Writes "OUT.framemd5" beside the clip `output` from the clip at `from`
// (the same clip under its temporary name, or itself). False, after the
// error line, on failure.
bool writeFramemd5File(const std::string& from, const std::string& output, bool force);

// Whether this build has the MD5 that frame checksums need.
bool framemd5Available();

// Frame checksums of a clip in FFmpeg's framemd5 format. False with the
// reason in `error`.
bool clipFramemd5(const std::string& path, std::string& text, std::string& error);

// The manifest: a header line, then one tab-separated record per file,
// each appended in one write, so that runs on several machines can share it.
class BatchManifest {
public:
    BatchManifest() = default;
    ~BatchManifest();
    BatchManifest(const BatchManifest&) = delete;
    BatchManifest& operator=(const BatchManifest&) = delete;

    // Opens the manifest at `path` to add to it, made when missing (an empty
    // file gets the header too); any other file there is refused.
    bool Open(const std::string& path);
    void Record(const BatchClip& clip, int32_t frames, const BatchOutcome& outcome);
    void RecordOther(const std::string& input);

private:
    void Append(const std::vector<std::string>& fields);
    std::string path_;
    int fd_ = -1;
};

// Converts the clips, `settings.jobs` at a time, recording each outcome in
// the manifest and showing progress on a terminal. The number that failed.
int runBatch(const BatchSettings& settings, std::vector<BatchClip>& clips, BatchManifest& manifest);
