#include "tool/vclip/ntscRate.h"

#include <cstdint>
#include <thread>
#include <vector>

#include "convert/fieldRate.h"
#include "tool/vclip/commands.h"
#include "tool/vclip/frameQueue.h"
#include "tool/vclip/messages.h"
#include "tool/vclip/pictures.h"
#include "tool/vclip/y4m.h"

namespace {

constexpr int kNtscLines = 486;
// Output frames made ahead of their writing.
constexpr int kWriteBehind = 3;

class FieldRateLines : public Y4mSink {
public:
    FieldRateLines(Y4mSink& next, const NtscRate& rate, std::string inputName)
        : next_(next), rate_(rate), name_(std::move(inputName))
    {}

    bool Begin(const Y4mHeader& header) override
    {
        FieldRateSettings settings;
        if (!orderOf(header.interlacing, settings))
            return false;
        settings.width = header.width;
        settings.inputLines = header.height;
        settings.outputLines = kNtscLines;
        settings.inputRate = header.rate;
        settings.outputRate = rate_.rate;
        // The bytes are the same for any number of threads.
        const unsigned cores = std::thread::hardware_concurrency();
        settings.threads = cores < 1 ? 1 : (cores > 16 ? 16 : static_cast<int>(cores));
        if (!FieldRateConverter::usable(settings))
            return report("%s: %d x %d at %d:%d; the rate conversion needs at least 32 x 32 pixels, an even number "
                          "of lines and a known rate",
                          name_.c_str(), header.width, header.height, header.rate.num, header.rate.den);
        width_ = header.width;
        lines_ = header.height;
        Y4mHeader out = header;
        out.height = kNtscLines;
        out.rate = rate_.rate;
        // Every output frame holds two fields of their own instants; the
        // line conversion puts the field first in time on the odd lines.
        out.interlacing = settings.topFieldFirst ? 'b' : 't';
        frameBytes_ = y4mFrameBytes(out);
        converter_ = std::make_unique<FieldRateConverter>(settings, [this](const uint32_t* frame) {
            std::vector<uint8_t>* planes = written_.Fill();
            if (!planes)
                return 0;
            planes->resize(frameBytes_);
            packedToPlanar(reinterpret_cast<const uint8_t*>(frame), width_, kNtscLines, planes->data());
            written_.Filled();
            return 1;
        });
        if (!next_.Begin(out))
            return false;
        writing_ = std::thread([this] { WriteFrames(); });
        return true;
    }

    bool Frame(const uint8_t* planes) override
    {
        const size_t lumaBytes = static_cast<size_t>(width_) * static_cast<size_t>(lines_);
        return converter_->pushPlanes(planes, planes + lumaBytes, planes + lumaBytes + lumaBytes / 2) != 0;
    }

    bool End() override
    {
        if (!converter_->finish())
            return false;
        EndWriting();
        return !writeFailed_ && next_.End();
    }

    // Whatever the end, the frames made are written, as they would be on
    // this thread.
    ~FieldRateLines() override { EndWriting(); }

private:
    // On a thread of its own, the frames made go to `next_` while the next
    // ones are made. A refused frame stops the conversion at its next frame.
    void WriteFrames()
    {
        while (const std::vector<uint8_t>* planes = written_.Take()) {
            const bool written = next_.Frame(planes->data());
            written_.Done();
            if (!written) {
                writeFailed_ = true;
                written_.Stop();
            }
        }
    }

    void EndWriting()
    {
        written_.Finish();
        if (writing_.joinable())
            writing_.join();
    }

    // The input's field order: --field-order, else the header's.
    bool orderOf(char tag, FieldRateSettings& settings) const
    {
        const int order = rate_.fieldOrder >= 0 ? rate_.fieldOrder : (tag == 'p' ? 0 : interlacingFromTag(tag));
        if (order == 0 && rate_.fieldOrder < 0 && tag != 'p')
            return report("%s: the header gives no field order (I%c); say --field-order tff, bff or progressive",
                          name_.c_str(), tag);
        settings.progressive = order == 0;
        settings.topFieldFirst = order != 2;
        return true;
    }

    Y4mSink& next_;
    NtscRate rate_;
    std::string name_;
    int width_ = 0, lines_ = 0;
    size_t frameBytes_ = 0;
    std::unique_ptr<FieldRateConverter> converter_;
    FrameQueue written_{kWriteBehind};
    bool writeFailed_ = false;  // the writing thread's until it ends
    std::thread writing_;
};

}  // namespace

bool ntscRateOptions(const Arguments& args, NtscRate& rate)
{
    if (args.Has("rate")) {
        double value = 0;
        if (toRate(args.Get("rate"), value))
            rateToFraction(value, rate.rate.num, rate.rate.den);
        // A rate below a thousandth of a frame a second comes out as 0.
        if (rate.rate.num <= 0)
            return badValue("rate", args.Get("rate"), "frames a second: 25, 29.97 or 30000/1001");
    }
    if (args.Has("field-order")) {
        if (!toFieldOrder(args.Get("field-order"), rate.fieldOrder))
            return badValue("field order", args.Get("field-order"), "tff, bff or progressive");
        if (!rate.rate.num)
            return report("ntsc: --field-order goes with --rate");
    }
    return true;
}

std::unique_ptr<Y4mSink> fieldRateStage(Y4mSink& next, const NtscRate& rate, const std::string& inputName)
{
    return std::make_unique<FieldRateLines>(next, rate, inputName);
}
