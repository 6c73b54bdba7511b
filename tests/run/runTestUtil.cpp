#include "runTestUtil.h"

#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>

ScratchDir::ScratchDir()
{
    char pattern[] = "/tmp/pal2ntsc-run-XXXXXX";
    if (mkdtemp(pattern))
        path = pattern;
}

ScratchDir::~ScratchDir()
{
    if (path.empty())
        return;
    nftw(
        path.c_str(),
        [](const char* name, const struct stat*, int, struct FTW*) { return remove(name); }, 16,
        FTW_DEPTH | FTW_PHYS);
}

RunResult runProgram(const std::string& program, const std::vector<std::string>& args,
                     int64_t fileSizeLimit, const std::string& cwd)
{
    char outName[] = "/tmp/pal2ntsc-out-XXXXXX";
    char errName[] = "/tmp/pal2ntsc-err-XXXXXX";
    const int outFd = mkstemp(outName);
    const int errFd = mkstemp(errName);
    std::vector<std::string> copy(args);
    std::vector<char*> argv;
    for (auto& a : copy)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    RunResult result;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(outFd, 1);
        dup2(errFd, 2);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0)
            _exit(126);
        if (fileSizeLimit > 0) {
            signal(SIGXFSZ, SIG_IGN);
            struct rlimit limit = {static_cast<rlim_t>(fileSizeLimit), static_cast<rlim_t>(fileSizeLimit)};
            setrlimit(RLIMIT_FSIZE, &limit);
        }
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    if (pid > 0) {
        int status = 0;
        waitpid(pid, &status, 0);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    close(outFd);
    close(errFd);
    result.out = readFile(outName);
    result.err = readFile(errName);
    unlink(outName);
    unlink(errName);
    return result;
}

RunResult runPal2ntsc(const std::vector<std::string>& args, int64_t fileSizeLimit)
{
    std::vector<std::string> all{PAL2NTSC_BIN};
    all.insert(all.end(), args.begin(), args.end());
    return runProgram(PAL2NTSC_BIN, all, fileSizeLimit);
}

RunResult runVclip(const std::vector<std::string>& args)
{
    std::vector<std::string> all{VCLIP_BIN};
    all.insert(all.end(), args.begin(), args.end());
    return runProgram(VCLIP_BIN, all);
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

bool exists(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

int64_t frameBytes(int32_t width, int32_t height, int32_t packing)
{
    const int64_t pixels = int64_t{width} * height;
    switch (packing) {
    case 1000:
        return pixels * 3;
    case 1005:
        return pixels;
    case 1008:
        return pixels * 2;
    default:
        return 0;
    }
}

int64_t slotBytes(int32_t width, int32_t height, int32_t packing)
{
    return (frameBytes(width, height, packing) + 4095) / 4096 * 4096;
}

namespace {

void putBig(std::string& out, uint64_t value, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(static_cast<char>(value >> (8 * i)));
}

uint64_t getBig(const std::string& in, size_t at, int bytes)
{
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = value << 8 | static_cast<uint8_t>(in[at + i]);
    return value;
}

}  // namespace

std::string clipHeader(const ClipFields& fields)
{
    std::string head;
    uint64_t rateBits;
    std::memcpy(&rateBits, &fields.rate, 8);
    for (int32_t v : {0x000609CE, 3, fields.frames, 4096, fields.replaceable, fields.width, fields.height,
                      fields.packing})
        putBig(head, static_cast<uint32_t>(v), 4);
    putBig(head, rateBits, 8);
    putBig(head, static_cast<uint32_t>(fields.interlacing), 4);
    return head;
}

std::vector<uint8_t> randomPicture(int64_t bytes, uint32_t seed)
{
    std::mt19937 random(seed);
    std::vector<uint8_t> picture(static_cast<size_t>(bytes));
    for (auto& b : picture)
        b = static_cast<uint8_t>(random());
    return picture;
}

void writeClip(const std::string& path, const ClipFields& fields, uint32_t seed, int64_t keepBytes)
{
    const int64_t slot = slotBytes(fields.width, fields.height, fields.packing);
    const int64_t picture = frameBytes(fields.width, fields.height, fields.packing);
    std::string file = clipHeader(fields);
    file.resize(static_cast<size_t>(slot), '\0');
    for (int i = 0; i < fields.frames; ++i) {
        const auto pixels = randomPicture(picture, seed + i);
        file.append(pixels.begin(), pixels.end());
        file.resize(file.size() + static_cast<size_t>(slot - picture), '\0');
    }
    if (keepBytes >= 0)
        file.resize(static_cast<size_t>(keepBytes));
    writeFile(path, file);
}

std::string ClipOnDisk::Slot(int i) const
{
    const size_t at = static_cast<size_t>(slot * (i + 1));
    if (slot <= 0 || at + slot > bytes.size())
        return "";
    return bytes.substr(at, static_cast<size_t>(slot));
}

ClipOnDisk readClip(const std::string& path)
{
    ClipOnDisk clip;
    clip.bytes = readFile(path);
    if (clip.bytes.size() < 44)
        return clip;
    int32_t* fields[] = {&clip.magic, &clip.version, &clip.frames, &clip.blockSize,
                         &clip.replaceable, &clip.width, &clip.height, &clip.packing};
    for (int i = 0; i < 8; ++i)
        *fields[i] = static_cast<int32_t>(getBig(clip.bytes, 4 * i, 4));
    const uint64_t rateBits = getBig(clip.bytes, 32, 8);
    std::memcpy(&clip.rate, &rateBits, 8);
    clip.interlacing = static_cast<int32_t>(getBig(clip.bytes, 40, 4));
    clip.slot = slotBytes(clip.width, clip.height, clip.packing);
    return clip;
}
