// Test support shared by the suites: scratch directories, whole-file access,
// captured standard output, child programs with their output captured, file
// hashes and clip headers built byte by byte (so that a test does not trust
// the code it checks to write its input). Header-only; everything lives in
// namespace tsupport.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern char** environ;

namespace tsupport {

using Bytes = std::vector<unsigned char>;

// A fresh directory under /tmp (a disk file system here, so clips get direct
// I/O), removed with everything in it.
class ScratchDir {
public:
    ScratchDir()
    {
        char pattern[] = "/tmp/pal2ntsc-test-XXXXXX";
        if (mkdtemp(pattern) != nullptr)
            path_ = pattern;
        EXPECT_FALSE(path_.empty()) << "cannot make a scratch directory";
    }
    ~ScratchDir()
    {
        std::error_code ec;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    std::string File(const std::string& leaf) const { return path_ + "/" + leaf; }
    std::string operator/(const std::string& leaf) const { return File(leaf); }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

inline std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline Bytes ReadBytes(const std::string& path)
{
    const std::string text = ReadFile(path);
    return Bytes(text.begin(), text.end());
}

inline void WriteFile(const std::string& path, const void* data, size_t size)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    EXPECT_TRUE(out.good()) << "cannot write " << path;
}
inline void WriteFile(const std::string& path, const std::string& text) { WriteFile(path, text.data(), text.size()); }
inline void WriteFile(const std::string& path, const Bytes& bytes) { WriteFile(path, bytes.data(), bytes.size()); }

// 64-bit FNV-1a of the bytes (of a whole file for HashFile).
inline uint64_t Hash(const void* data, size_t size)
{
    uint64_t h = 14695981039346656037ull;
    for (size_t i = 0; i < size; ++i)
        h = (h ^ static_cast<const unsigned char*>(data)[i]) * 1099511628211ull;
    return h;
}
inline uint64_t HashFile(const std::string& path)
{
    const std::string text = ReadFile(path);
    return Hash(text.data(), text.size());
}

// Runs f and returns what it printed on stdout (StdoutOf) or stderr (StderrOf).
template <class F>
std::string Captured(std::FILE* stream, void (*start)(), std::string (*finish)(), F&& f)
{
    std::fflush(stream);
    start();
    f();
    std::fflush(stream);
    return finish();
}
template <class F>
std::string StdoutOf(F&& f)
{
    return Captured(stdout, testing::internal::CaptureStdout, testing::internal::GetCapturedStdout, f);
}
template <class F>
std::string StderrOf(F&& f)
{
    return Captured(stderr, testing::internal::CaptureStderr, testing::internal::GetCapturedStderr, f);
}

struct RunResult {
    std::string out, err;
    int status = -1;  // exit status, or -1 when the program did not exit normally
};

// Runs `program` with args (args[0] is argv[0]) and collects its standard
// output, standard error and exit status. The output goes through files in
// a scratch directory of its own, so that a full pipe cannot stall it.
// Starts `program` with args (args[0] is argv[0]) and returns at once with
// its process id; standard output and error go to /dev/null. With ownGroup
// it leads a process group of its own, so kill(-pid) stops all it started.
inline pid_t StartProgram(const std::string& program, std::vector<std::string> args, bool ownGroup = false)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    if (ownGroup) {
        posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(&attr, 0);
    }
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    EXPECT_EQ(posix_spawn(&pid, program.c_str(), &actions, &attr, argv.data(), environ), 0)
        << "cannot start " << program;
    posix_spawnattr_destroy(&attr);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

inline RunResult RunProgram(const std::string& program, std::vector<std::string> args)
{
    ScratchDir dir;
    const std::string outPath = dir / "stdout", errPath = dir / "stderr";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    RunResult result;
    pid_t pid = 0;
    const int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(rc, 0) << "cannot start " << program;
    if (rc != 0)
        return result;
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    result.out = ReadFile(outPath);
    result.err = ReadFile(errPath);
    return result;
}

// Appends v to out, most significant byte first.
inline void PutBigEndian(Bytes& out, uint64_t v, int bytes)
{
    for (int k = bytes - 1; k >= 0; --k)
        out.push_back(static_cast<unsigned char>(v >> (8 * k)));
}

// The fields of a clip header as they lie on disk.
struct ClipHeader {
    uint32_t magic = 0x000609CE;
    int32_t version = 3;
    int32_t frames = 1;
    int32_t blockSize = 4096;
    int32_t replaceable = 1;
    int32_t width = 720;
    int32_t height = 576;
    int32_t packing = 1008;
    double rate = 25.0;
    int32_t interlacing = 0;

    // 40 bytes for version 1 (no interlacing), 44 otherwise.
    Bytes Encode() const
    {
        Bytes out;
        for (int64_t v : {int64_t(magic), int64_t(version), int64_t(frames), int64_t(blockSize), int64_t(replaceable),
                          int64_t(width), int64_t(height), int64_t(packing)})
            PutBigEndian(out, static_cast<uint32_t>(v), 4);
        uint64_t bits = 0;
        std::memcpy(&bits, &rate, sizeof bits);
        PutBigEndian(out, bits, 8);
        if (version != 1)
            PutBigEndian(out, static_cast<uint32_t>(interlacing), 4);
        return out;
    }
};

}  // namespace tsupport
