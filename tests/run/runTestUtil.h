// Helpers of the end-to-end suite: a scratch directory, running the built
// executables with their output captured, and clip files made byte by byte
// (so that the tests do not trust the code they check to write the input).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct RunResult {
    std::string out;
    std::string err;
    int status = -1;  // exit status, or -1 when the program did not exit normally
};

// A fresh directory under /tmp (a disk file system, so direct I/O is used),
// removed with everything in it at the end.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    const std::string& Path() const { return path; }

private:
    std::string path;
};

// Runs `program` with args (argv[0] is the program). A positive fileSizeLimit
// is put on the child as RLIMIT_FSIZE, with SIGXFSZ ignored, so that writes
// past it fail with EFBIG. `cwd`, when not empty, is the child's directory.
RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     int64_t fileSizeLimit = 0, const std::string& cwd = "");
RunResult runPal2ntsc(const std::vector<std::string>& args, int64_t fileSizeLimit = 0);
RunResult runVclip(const std::vector<std::string>& args);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);  // without following a last symbolic link

// Clip files, version 3, block size 4096.
struct ClipFields {
    int32_t frames = 0;
    int32_t width = 720;
    int32_t height = 576;
    int32_t packing = 1008;
    int32_t replaceable = 1;
    double rate = 25.0;
    int32_t interlacing = 1;
};

int64_t frameBytes(int32_t width, int32_t height, int32_t packing);
int64_t slotBytes(int32_t width, int32_t height, int32_t packing);
std::string clipHeader(const ClipFields& fields);  // 44 bytes

// Picture of frame `frame` of a generated clip: seeded random bytes.
std::vector<uint8_t> randomPicture(int64_t bytes, uint32_t seed);

// Writes a clip whose frame i holds randomPicture(picture, seed + i) and
// zero padding; `keepBytes` >= 0 cuts the file to that length.
void writeClip(const std::string& path, const ClipFields& fields, uint32_t seed, int64_t keepBytes = -1);

// A clip file as the tests see it: the header fields and the frame slots.
struct ClipOnDisk {
    int32_t magic = 0, version = 0, frames = 0, blockSize = 0, replaceable = 0;
    int32_t width = 0, height = 0, packing = 0, interlacing = 0;
    double rate = 0;
    int64_t slot = 0;
    std::string bytes;

    // The slot of frame i (empty when the file does not hold it all).
    std::string Slot(int i) const;
};
ClipOnDisk readClip(const std::string& path);
