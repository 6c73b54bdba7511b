// Shared helpers of the reliability suite: scratch directories on the real
// disk, clip files built byte by byte, file fingerprints, and running the
// built pal2ntsc as a child process with its output captured.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace rel {

constexpr uint32_t kClipMagic = 0x000609CE;
constexpr int32_t kYuv422 = 1008;
constexpr int32_t kBgr = 1000;

// A fresh directory under /tmp, removed with everything in it.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    std::string File(const std::string& leaf) const { return path_ + "/" + leaf; }
    const std::string& Path() const { return path_; }
    // Names of the entries in the directory, sorted.
    std::vector<std::string> List() const;

private:
    std::string path_;
};

// The header fields of a clip, as they lie on disk.
struct ClipHeader {
    uint32_t magic = kClipMagic;
    int32_t version = 3;
    int32_t frames = 1;
    int32_t blockSize = 4096;
    int32_t replaceable = 1;
    int32_t width = 32;
    int32_t height = 576;
    int32_t packing = kYuv422;
    double rate = 25.0;
    int32_t interlacing = 0;

    // 40 bytes for version 1, 44 otherwise.
    std::vector<unsigned char> Bytes() const;
    // Bytes of one frame slot for a 4:2:2 or BGR packing.
    int64_t Slot() const;
    // Offset of frame 0: one slot in version 3, one block before.
    int64_t DataOffset() const;
};

// A whole clip: header, padding up to frame 0, then `stored` frames (all the
// header counts when negative) of a pattern that differs from frame to
// frame and from seed to seed.
std::vector<unsigned char> MakeClip(const ClipHeader& h, int stored = -1, unsigned seed = 1);

std::vector<unsigned char> ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::vector<unsigned char>& bytes);
bool Exists(const std::string& path);       // follows symbolic links
bool LinkExists(const std::string& path);   // the name itself, links included

// What a file is: absent, or its size and a 64-bit hash of its bytes.
struct Fingerprint {
    bool exists = false;
    int64_t size = 0;
    uint64_t hash = 0;
    bool operator==(const Fingerprint& o) const
    {
        return exists == o.exists && size == o.size && hash == o.hash;
    }
    bool operator!=(const Fingerprint& o) const { return !(*this == o); }
};
Fingerprint FingerprintOf(const std::string& path);

struct RunResult {
    int status = -1;       // exit status, or -1 when killed
    int signal = 0;        // the signal that ended it, if any
    bool timedOut = false;
    std::string out, err;
};

// Runs the built pal2ntsc with the arguments. `inChild` runs in the child
// just before exec (limits, signals). The child is killed after the timeout.
RunResult RunTool(const std::vector<std::string>& args,
                  const std::function<void()>& inChild = {}, int timeoutSeconds = 120);

// Path of the built pal2ntsc.
std::string ToolPath();

}  // namespace rel
