// Damaged and foreign input clips given to the tool: each is refused with its
// message, the input keeps its bytes, an output already there keeps its bytes
// and nothing else is created.
#include <array>
#include <filesystem>
#include <tuple>

#include "tests/reliability/clips.h"

namespace {

using tsupport::Bytes;
using tsupport::ClipHeader;

// A clip the tool must refuse and what it prints, with @ standing for its path.
struct BadClip {
    std::string name;
    Bytes bytes;
    std::string out;
};

std::vector<BadClip> badClips()
{
    const std::string refused = "Unable to read @'s header, or it is not a Vetra file "
                                "[vXfsFile::OpenForReading]\nUnable to open PAL file\n";
    std::vector<BadClip> cases;
    // The header with one field changed, padded well past its end.
    const auto header = [](auto change) {
        ClipHeader h;
        h.frames = 0;
        change(h);
        Bytes bytes = h.Encode();
        bytes.resize(8192, 0);
        return bytes;
    };
    for (size_t n = 0; n <= 3; ++n)
        cases.push_back({std::to_string(n) + " bytes", Bytes(n, 0), "@ is not a Vetra xfs file.\n" + refused});
    cases.push_back(
        {"wrong magic", header([](ClipHeader& h) { h.magic = 0xCE090600; }), "@ is not a Vetra xfs file.\n" + refused});
    for (int32_t version : {0, 4})
        cases.push_back({"version " + std::to_string(version),
                         header([version](ClipHeader& h) { h.version = version; }),
                         "Unrecognized version number [vXfsFile::ReadHead]\n" + refused});
    // Cut inside each field after the magic.
    const Bytes whole = ClipHeader().Encode();
    for (size_t cut = 6; cut < whole.size(); cut += 4)
        cases.push_back({"cut at " + std::to_string(cut), Bytes(whole.begin(), whole.begin() + long(cut)),
                         "@'s header is cut short [vXfsFile::ReadHead]\n" + refused});
    for (int32_t block : {0, -4096})
        cases.push_back({"block size " + std::to_string(block), header([block](ClipHeader& h) { h.blockSize = block; }),
                         "Invalid block size " + std::to_string(block) + " in @ [vXfsFile::ReadHead]\n" + refused});
    // Zero and negative sizes, frame sizes past 2^31, wrapping past 2^32 to a
    // small one, a slot rounding past 2^31, a packing the store does not know.
    using Dims = std::array<int32_t, 3>;  // width, height, packing
    for (const Dims d :
         {Dims{0, 576, 1008}, Dims{720, 0, 1008}, Dims{-720, 576, 1008}, Dims{720, -576, 1008},
          Dims{65536, 16384, 1008}, Dims{65536, 32769, 1008}, Dims{1073741823, 1, 1008}, Dims{720, 576, 1234}}) {
        const std::string line = "Frame size of @ is not valid (" + std::to_string(d[0]) + " x " +
                                 std::to_string(d[1]) + ", packing " + std::to_string(d[2]) +
                                 ") [vXfsFile::ReadHead]\n";
        const auto dims = [d](ClipHeader& h) { std::tie(h.width, h.height, h.packing) = std::tie(d[0], d[1], d[2]); };
        cases.push_back({line, header(dims), line + refused});
    }
    // Headers the store accepts but the run cannot convert: refused after the
    // information line, before any output is opened.
    ClipHeader h;
    h.frames = -5;
    cases.push_back({"negative frame count", rel::MakeClip(h, 1),
                     "PAL file: -5 frames [720x576]\nPAL file has a negative frame count (-5)\n"});
    h.frames = 3;
    cases.push_back({"shorter than its frame count", rel::MakeClip(h, 1),
                     "PAL file: 3 frames [720x576]\nPAL file is truncated: 1 of 3 frames present\n"});
    return cases;
}

TEST(BadClip, RefusedWithItsMessageAndNothingWritten)
{
    tsupport::ScratchDir dir;
    const std::string input = dir / "bad.clip", ntsc = dir / "ntsc.clip";
    for (BadClip& c : badClips()) {
        SCOPED_TRACE(c.name);
        tsupport::WriteFile(input, c.bytes);
        tsupport::WriteFile(ntsc, "an earlier output");
        for (size_t at = c.out.find('@'); at != std::string::npos; at = c.out.find('@', at + input.size()))
            c.out.replace(at, 1, input);
        const tsupport::RunResult r =
            tsupport::RunProgram(PAL2NTSC_BIN, {"pal2ntsc", "-P", input, "-N", ntsc, "-n", dir / "small.clip"});
        EXPECT_EQ(std::make_tuple(r.status, r.out, r.err), std::make_tuple(0, c.out, std::string()));
        EXPECT_EQ(tsupport::HashFile(input), tsupport::Hash(c.bytes.data(), c.bytes.size()));
        EXPECT_EQ(tsupport::ReadFile(ntsc), "an earlier output");
        const auto entries = std::filesystem::directory_iterator(dir.Path());
        EXPECT_EQ(std::distance(begin(entries), end(entries)), 2) << "a reduced copy or a scratch file was made";
    }
}

}  // namespace
