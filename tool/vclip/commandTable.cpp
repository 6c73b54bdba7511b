#include "tool/vclip/commands.h"

const std::vector<Command>& vclipCommands()
{
    static const std::vector<Command> kCommands = {
        {"info",
         commandInfo,
         {},
         infoHelp,
         "  info CLIP                         show the header and how many frames are present\n"},
        {"bars",
         commandBars,
         {{"frames", "width", "height"}, {"force"}},
         barsHelp,
         "  bars OUT [options]                make a PAL test clip of colour bars\n"},
        {"import",
         commandImport,
         {{"uyvy", "y4m", "width", "height", "rate"}, {"force"}},
         importHelp,
         "  import --uyvy RAW --width W --height H OUT\n"
         "  import --y4m IN.y4m|- OUT         make a 4:2:2 clip from raw UYVY or YUV4MPEG2 4:2:2\n"},
        {"export",
         commandExport,
         {{"y4m", "frame", "frames", "image", "rate", "field-order"}, {"force"}},
         exportHelp,
         "  export CLIP --y4m OUT.y4m|- [--rate R] [--field-order tff|bff|progressive]\n"
         "                                    write a 4:2:2 clip as YUV4MPEG2\n"
         "  export CLIP --frame N --image OUT write one frame as .png, .ppm or .bmp\n"
         "  export CLIP --frames A-B --image 'OUT%04d.png'\n"
         "                                    write frames A to B as pictures\n"},
        {"batch",
         commandBatch,
         {{"reduced", "scale", "jobs", "manifest", "converter", "only"}, {"framemd5", "force", "plan"}},
         batchHelp,
         "  batch SRC DST [options]           convert every clip under SRC into DST, resumable\n"},
        {"verify",
         commandVerify,
         {{"reduced"}, {}},
         verifyHelp,
         "  verify SRC DST [--reduced RDIR]   check every output against a fresh conversion\n"},
        {"framemd5",
         commandFramemd5,
         {},
         framemd5Help,
         "  framemd5 CLIP                     one MD5 per frame, as FFmpeg's framemd5\n"},
        {"set",
         commandSet,
         {{"rate", "field-order", "replaceable"}, {}},
         setHelp,
         "  set CLIP [--rate R] [--field-order tff|bff|progressive] [--replaceable 0|1]\n"
         "                                    rewrite those header fields in place\n"},
        {"ntsc",
         commandNtsc,
         {{"rate", "field-order"}, {"force"}},
         ntscHelp,
         "  ntsc IN.y4m OUT.y4m [--rate 30000/1001 [--field-order tff|bff|progressive]]\n"
         "                                    convert a 4:2:2 stream to NTSC lines ('-': a pipe)\n"},
    };
    return kCommands;
}

const Command* findCommand(const std::string& name)
{
    for (const Command& command : vclipCommands())
        if (name == command.name)
            return &command;
    return nullptr;
}
