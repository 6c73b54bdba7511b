#include "tool/vclip/help.h"

#include <map>

namespace {

const char* const kMainHelp = "Usage: vclip COMMAND [ARGUMENTS]\n"
                              "       vclip help [COMMAND]\n"
                              "       vclip --version\n"
                              "Looks after clip files of the store.\n"
                              "\n"
                              "Commands:\n"
                              "  info CLIP                         show the header and how many frames are present\n"
                              "  bars OUT [options]                make a PAL test clip of colour bars\n"
                              "  import --uyvy RAW --width W --height H OUT\n"
                              "  import --y4m IN.y4m OUT           make a 4:2:2 clip from raw UYVY or YUV4MPEG2 4:2:2\n"
                              "  export CLIP --y4m OUT.y4m         write a 4:2:2 clip as YUV4MPEG2\n"
                              "  export CLIP --frame N --image OUT write one frame as .png, .ppm or .bmp\n"
                              "\n"
                              "'vclip COMMAND --help' or 'vclip help COMMAND' describes a command;\n"
                              "'vclip --version' prints the version. The exit status is 0 when the command\n"
                              "did its work, 1 after an error (one line on standard error, \"vclip: ...\").\n";

// What every command that writes says about what it writes over, after
// the lines that name its own kind of output.
std::string replaces(const std::string& ownKind)
{
    return ownKind + "--force replaces any other regular file too. Never replaced, even with --force:\n"
                     "a preserved clip, a file the command reads, a directory, anything that is not\n"
                     "a regular file. A symbolic link is written through (its target is replaced and\n"
                     "the link kept); a link that leads nowhere is refused.\n";
}

const std::map<std::string, std::string> kHelp = {
    {"info", "Usage: vclip info CLIP\n"
             "Prints every header field of CLIP (version, frame count, block size, replaceable,\n"
             "width, height, packing, rate, interlacing), its frame slot, data offset and file\n"
             "size, and whether the file really holds the frames its header counts: a frame\n"
             "counts only when its picture is written data in the file (not past the end, not\n"
             "a hole, not space only reserved), so a clip a failed run left shows as\n"
             "\"complete: no, K of N frames present\". A negative frame count is reported as\n"
             "not valid.\n"},
    {"bars", "Usage: vclip bars OUT [--frames N] [--width W] [--height H] [--force]\n"
             "Writes a PAL test clip (YUV 4:2:2, packing 1008, 25 frames a second, top field\n"
             "first): 75% colour bars in studio range, a luma ramp, and a white box that is\n"
             "further right in the odd lines than in the even ones, so that a conversion that\n"
             "mixes the two fields shows a doubled box. Defaults: 25 frames, 720x576.\n" +
                 replaces("An existing OUT is replaced only when it is empty or a replaceable clip;\n") +
                 "A replaceable clip is replaced in place; any other file only once the new clip\n"
                 "is complete.\n"},
    {"import", "Usage: vclip import --uyvy RAW --width W --height H [--rate R] [--force] OUT\n"
               "       vclip import --y4m IN.y4m [--force] OUT\n"
               "Makes a YUV 4:2:2 clip (packing 1008). RAW holds whole frames of bytes\n"
               "Cb Y0 Cr Y1, top line first (rate 25 unless given). IN.y4m must be a\n"
               "YUV4MPEG2 stream in C422; its rate and interlacing go into the header\n"
               "(It: 1 top field first, Ib: 2 bottom field first, otherwise 0). The whole\n"
               "stream is checked before OUT is touched: a FRAME line that is malformed,\n"
               "longer than 4096 characters or carries a tag other than X, a cut-off FRAME\n"
               "line and a last frame cut short are errors naming the frame (counted from 0).\n" +
                   replaces("An existing OUT is replaced only when it is empty or a replaceable clip;\n")},
    {"export", "Usage: vclip export CLIP --y4m OUT.y4m [--force]\n"
               "       vclip export CLIP --frame N --image OUT.png|OUT.ppm|OUT.bmp [--force]\n"
               "Writes a 4:2:2 clip as a YUV4MPEG2 stream (C422, rate from the header or\n"
               "25:1, interlacing from the header), or one frame (N from 0) of a 4:2:2\n"
               "clip or of a reduced 24-bit RGB clip as a picture (BT.601 studio range\n"
               "to full-range RGB for 4:2:2). The kind of picture follows OUT's ending.\n"
               "Frames the file does not hold in full are refused before anything is written.\n"
               "OUT is written beside its place and put there only when complete, so a\n"
               "failed export leaves what was there as it was.\n" +
                   replaces("An existing OUT is replaced only when it is empty, a YUV4MPEG2 stream (for\n"
                            "--y4m) or a picture of the kind its ending names (for --image);\n")},
};

}  // namespace

const char* mainHelp() { return kMainHelp; }

const std::string* helpOf(const std::string& command)
{
    const auto found = kHelp.find(command);
    return found == kHelp.end() ? nullptr : &found->second;
}
