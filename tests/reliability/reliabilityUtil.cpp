#include "reliabilityUtil.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace rel {

namespace {

void put32(std::vector<unsigned char>& out, uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<unsigned char>(v >> shift));
}

std::string slurp(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

ScratchDir::ScratchDir()
{
    char pattern[] = "/tmp/pal2ntsc-rel-XXXXXX";
    const char* made = mkdtemp(pattern);
    if (made != nullptr)
        path_ = made;
}

ScratchDir::~ScratchDir()
{
    std::error_code ec;
    if (!path_.empty())
        std::filesystem::remove_all(path_, ec);
}

std::vector<std::string> ScratchDir::List() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<unsigned char> ClipHeader::Bytes() const
{
    std::vector<unsigned char> out;
    put32(out, magic);
    put32(out, static_cast<uint32_t>(version));
    put32(out, static_cast<uint32_t>(frames));
    put32(out, static_cast<uint32_t>(blockSize));
    put32(out, static_cast<uint32_t>(replaceable));
    put32(out, static_cast<uint32_t>(width));
    put32(out, static_cast<uint32_t>(height));
    put32(out, static_cast<uint32_t>(packing));
    uint64_t bits = 0;
    std::memcpy(&bits, &rate, sizeof bits);
    put32(out, static_cast<uint32_t>(bits >> 32));
    put32(out, static_cast<uint32_t>(bits));
    if (version != 1)
        put32(out, static_cast<uint32_t>(interlacing));
    return out;
}

int64_t ClipHeader::Slot() const
{
    const int64_t frame = int64_t{width} * height * (packing == kBgr ? 3 : 2);
    if (blockSize <= 0 || frame <= 0)
        return 0;  // no layout: only the header is written
    return (frame + blockSize - 1) / blockSize * blockSize;
}

int64_t ClipHeader::DataOffset() const { return version == 3 ? Slot() : blockSize; }

std::vector<unsigned char> MakeClip(const ClipHeader& h, int stored, unsigned seed)
{
    std::vector<unsigned char> bytes = h.Bytes();
    const int64_t offset = std::max<int64_t>(h.DataOffset(), 0);
    const int64_t slot = h.Slot();
    const int count = stored < 0 ? h.frames : stored;
    // A slot smaller than the header puts frame 0 over its end, as on disk.
    const int64_t end = std::max<int64_t>(offset + count * slot, static_cast<int64_t>(bytes.size()));
    bytes.resize(static_cast<size_t>(end), 0);
    for (int i = 0; i < count; ++i)
        for (int64_t k = 0; k < slot; ++k)
            bytes[static_cast<size_t>(offset + i * slot + k)] =
                static_cast<unsigned char>((k * 7 + (k >> 9) * 13 + i * 29 + seed * 101) & 0xFF);
    return bytes;
}

std::vector<unsigned char> ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool Exists(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

bool LinkExists(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

Fingerprint FingerprintOf(const std::string& path)
{
    Fingerprint f;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return f;
    f.exists = true;
    uint64_t hash = 1469598103934665603ull;  // FNV-1a
    std::vector<unsigned char> chunk(1 << 16);
    ssize_t r;
    while ((r = read(fd, chunk.data(), chunk.size())) > 0) {
        for (ssize_t i = 0; i < r; ++i)
            hash = (hash ^ chunk[static_cast<size_t>(i)]) * 1099511628211ull;
        f.size += r;
    }
    close(fd);
    f.hash = hash;
    return f;
}

std::string ToolPath() { return PAL2NTSC_BIN; }

RunResult RunTool(const std::vector<std::string>& args, const std::function<void()>& inChild,
                  int timeoutSeconds)
{
    RunResult result;
    char outName[] = "/tmp/pal2ntsc-rel-out-XXXXXX";
    char errName[] = "/tmp/pal2ntsc-rel-err-XXXXXX";
    const int outFd = mkstemp(outName);
    const int errFd = mkstemp(errName);
    if (outFd < 0 || errFd < 0)
        return result;

    std::vector<std::string> argvText{ToolPath()};
    argvText.insert(argvText.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : argvText)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(outFd, 1);
        dup2(errFd, 2);
        if (inChild)
            inChild();
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(outFd);
    close(errFd);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            result.timedOut = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (WIFEXITED(status))
        result.status = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    result.out = slurp(outName);
    result.err = slurp(errName);
    unlink(outName);
    unlink(errName);
    return result;
}

}  // namespace rel
