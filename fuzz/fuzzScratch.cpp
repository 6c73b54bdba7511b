#include "fuzz/fuzzScratch.h"
#include "fuzz/fuzzTargets.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace {

class ScratchDirectory {
public:
    ScratchDirectory()
    {
        // PAL2NTSC_FUZZ_DIR puts the files elsewhere, e.g. on a tmpfs for
        // speed (transfers are then buffered: direct I/O is not exercised).
        const char* base = std::getenv("PAL2NTSC_FUZZ_DIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/pal2ntsc-fuzz-XXXXXX";
        const char* made = mkdtemp(pattern.data());
        fuzzCheck(made != nullptr, "scratch directory cannot be made");
        path = made;
    }
    ~ScratchDirectory()
    {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    std::string path;
};

}  // namespace

void fuzzCheck(bool ok, const char* what)
{
    if (ok)
        return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::fflush(nullptr);
    std::abort();
}

const std::string& fuzzScratchDir()
{
    static ScratchDirectory dir;
    return dir.path;
}

bool fuzzWriteFile(const std::string& path, const void* data, size_t size)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const auto* bytes = static_cast<const unsigned char*>(data);
    size_t done = 0;
    while (done < size) {
        const ssize_t r = write(fd, bytes + done, size - done);
        if (r <= 0)
            break;
        done += static_cast<size_t>(r);
    }
    close(fd);
    return done == size;
}

std::vector<unsigned char> fuzzReadFile(const std::string& path)
{
    std::vector<unsigned char> bytes;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return bytes;
    unsigned char chunk[65536];
    ssize_t r;
    while ((r = read(fd, chunk, sizeof chunk)) > 0)
        bytes.insert(bytes.end(), chunk, chunk + r);
    close(fd);
    return bytes;
}

std::vector<std::string> fuzzStrayFiles(const std::vector<std::string>& known)
{
    std::vector<std::string> stray;
    DIR* dir = opendir(fuzzScratchDir().c_str());
    if (dir == nullptr)
        return stray;
    while (const dirent* entry = readdir(dir)) {
        const std::string leaf = entry->d_name;
        if (leaf == "." || leaf == "..")
            continue;
        if (std::find(known.begin(), known.end(), leaf) == known.end())
            stray.push_back(leaf);
    }
    closedir(dir);
    return stray;
}
