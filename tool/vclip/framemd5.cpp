// vclip framemd5: one MD5 per frame, in FFmpeg's framemd5 format, so that a
// clip's checksums can be compared with FFmpeg's for the exported stream
// and kept beside the clip to prove later that it has not changed.
//
// A 4:2:2 clip's frames are hashed as FFmpeg decodes its YUV4MPEG2 export:
// yuv422p raw pictures (the Y plane, then Cb, then Cr). A reduced clip's
// frames are hashed as FFmpeg's bgr24 raw pictures, top line first (the clip
// keeps them bottom line first). The lines are those FFmpeg prints with
// -bitexact: the same as without it, less its "#software" line, which names
// FFmpeg's own library version.
#include <cstdio>
#include <numeric>
#include <vector>

#include "tool/vclip/batch.h"
#include "tool/vclip/clipAccess.h"
#include "tool/vclip/commands.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/pictures.h"
#include "tool/vclip/y4m.h"

#ifdef VCLIP_HAVE_LIBCRYPTO
#include <openssl/evp.h>
#endif

namespace {

#ifdef VCLIP_HAVE_LIBCRYPTO
constexpr bool kHaveMd5 = true;

std::string md5Hex(const uint8_t* data, size_t bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(data, bytes, digest, &length, EVP_md5(), nullptr) != 1)
        return {};
    std::string hex;
    char pair[3];
    for (unsigned int i = 0; i < length; ++i) {
        std::snprintf(pair, sizeof pair, "%02x", digest[i]);
        hex += pair;
    }
    return hex;
}
#else
constexpr bool kHaveMd5 = false;

std::string md5Hex(const uint8_t*, size_t) { return {}; }
#endif

// The picture as FFmpeg hands it to the hash.
void rawPicture(const vXfsFile& clip, const uint8_t* frame, std::vector<uint8_t>& picture)
{
    const int width = clip.GetWidth(), height = clip.GetHeight();
    if (clip.GetImageFormat() == DM_IMAGE_PACKING_CbYCrY) {
        packedToPlanar(frame, width, height, picture.data());
        return;
    }
    const size_t line = static_cast<size_t>(width) * 3;
    for (int y = 0; y < height; ++y)
        std::copy_n(frame + static_cast<size_t>(height - 1 - y) * line, line, picture.data() + y * line);
}

std::string headerLines(const vXfsFile& clip)
{
    double rate = 0;
    clip.GetImageRate(rate);
    int num = 25, den = 1;
    rateToFraction(rate, num, den);
    const int common = std::gcd(num, den);
    char text[512];
    std::snprintf(text, sizeof text,
                  "#format: frame checksums\n#version: 2\n#hash: MD5\n#tb 0: %d/%d\n#media_type 0: video\n"
                  "#codec_id 0: rawvideo\n#dimensions 0: %dx%d\n#sar 0: 0/1\n"
                  "#stream#, dts,        pts, duration,     size, hash\n",
                  den / common, num / common, clip.GetWidth(), clip.GetHeight());
    return text;
}

bool fail(std::string& error, std::string why)
{
    error = std::move(why);
    return false;
}

}  // namespace

bool framemd5Available() { return kHaveMd5; }

bool clipFramemd5(const std::string& path, std::string& text, std::string& error)
{
    if (!kHaveMd5)
        return fail(error, "framemd5 needs libcrypto, which this build of vclip was made without");
    vXfsFile clip;
    if (!openInputClip(clip, path))
        return fail(error, path + " cannot be read as a clip");
    const DMimagepacking packing = clip.GetImageFormat();
    if ((packing != DM_IMAGE_PACKING_CbYCrY && packing != DM_IMAGE_PACKING_BGR) ||
        (packing == DM_IMAGE_PACKING_CbYCrY && clip.GetWidth() % 2 != 0))
        return fail(error, path + " is neither a 4:2:2 clip of even width nor a reduced 24-bit BGR clip");
    const int32_t frames = clip.GetNumFrames();
    if (frames < 0 || framesPresent(clip) < frames)
        return fail(error, path + " does not hold all the frames its header counts");

    text = headerLines(clip);
    const int64_t bytes = pictureBytes(clip);
    FrameBuffer frame(clip.ImageSize());
    std::vector<uint8_t> picture(static_cast<size_t>(bytes));
    if (frames > 0 && frame.size() == 0)
        return fail(error, "out of memory");
    for (int i = 0; i < frames; ++i) {
        if (!readFrame(clip, path.c_str(), i, frame))
            return fail(error, path + ": frame " + std::to_string(i) + " cannot be read");
        rawPicture(clip, frame.data(), picture);
        char line[160];
        std::snprintf(line, sizeof line, "0, %10d, %10d, %8d, %8lld, %s\n", i, i, 1, static_cast<long long>(bytes),
                      md5Hex(picture.data(), picture.size()).c_str());
        text += line;
    }
    return true;
}

bool writeFramemd5File(const std::string& from, const std::string& output, bool force)
{
    std::string text, error;
    if (!clipFramemd5(from, text, error))
        return report("%s", error.c_str());
    OutputRules rules;
    rules.force = force;
    FileOutput out;
    return out.Begin(output + ".framemd5", OutputKind::Framemd5, rules) && out.Write(text.data(), text.size()) &&
           out.Finish();
}

int commandFramemd5(const Arguments& args)
{
    if (!oneOperand(args, "framemd5", "one clip"))
        return 1;
    std::string text, error;
    if (!clipFramemd5(args.operands[0], text, error))
        return failure("%s", error.c_str());
    std::fputs(text.c_str(), stdout);
    return 0;
}

std::string framemd5Help()
{
    return "Usage: vclip framemd5 CLIP\n"
           "Prints one MD5 per frame of CLIP in FFmpeg's framemd5 format: the same lines as\n"
           "'ffmpeg -i x.y4m -f framemd5 -' prints for the clip exported with\n"
           "'vclip export CLIP --y4m x.y4m', header lines included, less FFmpeg's\n"
           "'#software' line (which names FFmpeg's version; -bitexact leaves it out too).\n"
           "4:2:2 frames are hashed as yuv422p pictures (the Y plane, then Cb, then Cr);\n"
           "a reduced clip's frames as bgr24 pictures, top line first, as FFmpeg hashes\n"
           "raw bgr24 frames. The time base is 1/rate, 1/25 when the header has no rate.\n"
           "Every frame must be in the file.\n";
}
