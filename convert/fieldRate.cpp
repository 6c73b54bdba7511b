#include "convert/fieldRate.h"

#include <cstdlib>
#include <numeric>
#include <vector>

#include "convert/Convert.h"
#include "convert/bandWorkers.h"
#include "convert/fieldInterpolate.h"
#include "convert/fieldPlanes.h"
#include "convert/fieldRateKernels.h"
#include "convert/motionSearch.h"

namespace {

// Frames held: the two around the fields being made and the one arriving.
constexpr int slotCount = 4;
// Words after a frame that no line holds.
constexpr std::size_t slack = 16;
// Lines of the line conversion made per band.
constexpr int convertBand = 27;
// Field lines interpolated per band.
constexpr int interpolateBand = 8;
// A block differing by more than this per pixel at its best vector does
// not continue the earlier field; when most do, the pair spans a cut.
constexpr unsigned cutDifference = 24 * blockSize * blockSize;

struct Slot {
    int64_t index = -1;
    FieldPicture fields[2];  // by order in time
};

// The two fields of one parity an output field is made from, and how far
// between them it lies.
struct FieldPlan {
    int order;       // 0: the first field of a frame in time, 1: the second
    int64_t first;   // input frame of the earlier field
    int64_t second;  // input frame of the later one (first when equal)
    Fraction at;
};

// The motion between the fields of one order of frames first and first + 1.
struct Pair {
    int64_t first = -1;
    bool same = false;  // the two fields are equal
    int cutAt = 0;      // 0: no cut; else input fields after the earlier one
    MotionField coarse, fine, previous;
    MotionField chosen;
};

unsigned meanDifference(const Plane& p, const Plane& q)
{
    uint64_t sum = 0;
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x)
            sum += unsigned(std::abs(p.row(y)[x] - q.row(y)[x]));
    return static_cast<unsigned>(sum / static_cast<uint64_t>(p.width * p.height));
}

bool samePicture(const FieldPicture& p, const FieldPicture& q)
{
    return p.luma.data == q.luma.data && p.cb.data == q.cb.data && p.cr.data == q.cr.data;
}

// An output field lasts num / den input fields, in lowest terms.
void fieldStep(const FieldRateSettings& s, int64_t& num, int64_t& den)
{
    num = int64_t(s.inputRate.num) * s.outputRate.den;
    den = int64_t(s.inputRate.den) * s.outputRate.num;
    const int64_t common = std::gcd(num, den);
    num /= common;
    den /= common;
}

}  // namespace

struct FieldRateConverter::State {
    FieldRateSettings settings;
    Sink sink;
    BandWorkers workers;
    int64_t num = 1, den = 1;  // an output field lasts num / den input fields
    Slot slots[slotCount];
    Pair pairs[2];
    std::vector<uint32_t> woven, output;
    int64_t received = 0, sent = 0;
    bool finishing = false;

    State(const FieldRateSettings& s, Sink out) : settings(s), sink(std::move(out)), workers(s.threads)
    {
        fieldStep(s, num, den);
        const std::size_t words = static_cast<std::size_t>(s.width >> 1);
        // Room after each frame for kernels that read whole vectors.
        woven.assign(words * static_cast<std::size_t>(s.inputLines) + slack, 0);
        output.assign(words * static_cast<std::size_t>(s.outputLines) + slack, 0);
    }

    int fieldLines() const { return settings.inputLines >> 1; }
    int lineParity(int order) const { return settings.topFieldFirst ? order : 1 - order; }
    Slot& slot(int64_t index) { return slots[index % slotCount]; }
    FieldPlan plan(int64_t k) const;
    bool ready(int64_t m) const;
    int push(const FrameBytes& frame);
    void preparePairs(const FieldPlan* plans);
    void findCut(Pair& pair, int order);
    void weave(const FieldPlan* plans);
    void copyField(int64_t frame, int order);
    int emit();
    int64_t total() const { return (2 * received * den + num) / (2 * num); }
};

FieldPlan FieldRateConverter::State::plan(int64_t k) const
{
    FieldPlan p{static_cast<int>(k & 1), 0, 0, {0, 2 * den}};
    // Field k's instant in input field times is k * num / den; the fields of
    // its order lie at 2n + offset.
    const int64_t offset = (!settings.progressive && p.order == 1) ? den : 0;
    const int64_t t = k * num - offset;
    // Before the first field of its order (the second order's first field
    // time): carried back from the first two.
    p.at.num = t;
    if (t > 0) {
        p.first = t / (2 * den);
        p.at.num = t - p.first * 2 * den;
    }
    p.second = p.at.num ? p.first + 1 : p.first;
    // Past the last input field of its order: carried on from the last two.
    if (finishing && p.second >= received) {
        p.first = received >= 2 ? received - 2 : 0;
        p.second = received - 1;
        p.at.num = p.first == p.second ? 0 : t - p.first * 2 * den;
    }
    return p;
}

bool FieldRateConverter::State::ready(int64_t m) const
{
    return plan(2 * m).second < received && plan(2 * m + 1).second < received;
}

// Takes the frame's fields apart and makes the output frames they complete.
int FieldRateConverter::State::push(const FrameBytes& frame)
{
    Slot& s = slot(received);
    s.index = received;
    workers.run(2, [&](int order) {
        takeField(frame, settings.width, settings.inputLines, lineParity(order), s.fields[order]);
    });
    ++received;
    while (ready(sent))
        if (!emit())
            return 0;
    return 1;
}

// Whether the pair's fields straddle a cut, and if so where the new scene
// begins: with the field between them (of the other parity) when that one
// looks like the later field, else with the later field itself.
void FieldRateConverter::State::findCut(Pair& pair, int order)
{
    std::size_t broken = 0;
    for (unsigned cost : pair.fine.costs)
        broken += cost > cutDifference;
    pair.cutAt = 0;
    if (2 * broken <= pair.fine.costs.size())
        return;
    pair.cutAt = 2;
    if (settings.progressive)
        return;
    const FieldPicture& early = slot(pair.first).fields[order];
    const FieldPicture& late = slot(pair.first + 1).fields[order];
    const FieldPicture& between = order == 0 ? slot(pair.first).fields[1] : slot(pair.first + 1).fields[0];
    if (meanDifference(between.quarter, late.quarter) < meanDifference(between.quarter, early.quarter))
        pair.cutAt = 1;
}

void FieldRateConverter::State::preparePairs(const FieldPlan* plans)
{
    bool search[2] = {false, false};
    for (int f = 0; f < 2; ++f) {
        const FieldPlan& p = plans[f];
        Pair& pair = pairs[p.order];
        if (!p.at.num || pair.first == p.first)
            continue;
        pair.cutAt = 0;
        const FieldPicture& a = slot(p.first).fields[p.order];
        const FieldPicture& b = slot(p.second).fields[p.order];
        const bool follows = pair.first >= 0 && pair.first + 1 == p.first;
        std::swap(pair.previous, pair.fine);
        if (!follows)
            pair.previous.vectors.clear();
        pair.first = p.first;
        pair.same = samePicture(a, b);
        if (pair.fine.vectors.empty())
            shapeMotion(pair.coarse, pair.fine, a.luma.width, a.luma.height);
        // Shaped once: the vector choice writes every vector before the
        // interpolation reads any.
        if (pair.chosen.vectors.size() != pair.fine.vectors.size())
            pair.chosen = pair.fine;
        search[p.order] = !pair.same;
    }
    auto picturesOf = [&](int order) -> std::pair<const FieldPicture*, const FieldPicture*> {
        const Pair& pair = pairs[order];
        return {&slot(pair.first).fields[order], &slot(pair.first + 1).fields[order]};
    };
    const int coarseRows = (fieldLines() + areaSize - 1) / areaSize;
    workers.run(2 * coarseRows, [&](int band) {
        const int order = band / coarseRows, row = band % coarseRows;
        if (search[order]) {
            const auto pictures = picturesOf(order);
            searchCoarse(*pictures.first, *pictures.second, pairs[order].coarse, row, row + 1);
        }
    });
    const int fineRows = (fieldLines() + blockSize - 1) / blockSize;
    workers.run(2 * fineRows, [&](int band) {
        const int order = band / fineRows, row = band % fineRows;
        if (search[order]) {
            Pair& pair = pairs[order];
            const auto pictures = picturesOf(order);
            const MotionField* previous = pair.previous.vectors.empty() ? nullptr : &pair.previous;
            searchFine(*pictures.first, *pictures.second, pair.coarse, previous, pair.fine, row, row + 1);
        }
    });
    for (int order = 0; order < 2; ++order)
        if (search[order])
            findCut(pairs[order], order);
}

void FieldRateConverter::State::copyField(int64_t frame, int order)
{
    const int words = settings.width >> 1;
    const int parity = lineParity(order);
    const FieldPicture& field = slot(frame).fields[order];
    const FieldRateKernels& kernels = fieldRateKernels();
    auto* to = reinterpret_cast<uint8_t*>(woven.data());
    for (int y = 0; y < fieldLines(); ++y)
        kernels.pack(field.luma.row(y), field.cb.row(y), field.cr.row(y), words,
                     to + static_cast<std::ptrdiff_t>(2 * y + parity) * words * 4);
}

// The frame of the two output fields at the input's line count.
void FieldRateConverter::State::weave(const FieldPlan* plans)
{
    bool moving[2] = {false, false};
    for (int f = 0; f < 2; ++f) {
        const FieldPlan& p = plans[f];
        const Pair& pair = pairs[p.order];
        if (!p.at.num || pair.same)
            copyField(p.first, p.order);
        else if (pair.cutAt)
            copyField(2 * p.at.num >= pair.cutAt * p.at.den ? p.second : p.first, p.order);
        else
            moving[f] = true;
    }
    const int rows = (fieldLines() + blockSize - 1) / blockSize;
    workers.run(2 * rows, [&](int band) {
        const int f = band / rows, row = band % rows;
        if (moving[f]) {
            const FieldPlan& p = plans[f];
            Pair& pair = pairs[p.order];
            chooseVectors(slot(p.first).fields[p.order], slot(p.second).fields[p.order], pair.fine, p.at, pair.chosen,
                          row, row + 1);
        }
    });
    const int lines = fieldLines();
    const int bands = (lines + interpolateBand - 1) / interpolateBand;
    workers.run(2 * bands, [&](int band) {
        const int f = band / bands, from = (band % bands) * interpolateBand;
        const int to = from + interpolateBand < lines ? from + interpolateBand : lines;
        if (moving[f]) {
            const FieldPlan& p = plans[f];
            interpolateLines(slot(p.first).fields[p.order], slot(p.second).fields[p.order], pairs[p.order].chosen, p.at,
                             reinterpret_cast<uint8_t*>(woven.data()), settings.width, lineParity(p.order), from, to);
        }
    });
}

int FieldRateConverter::State::emit()
{
    const FieldPlan plans[2] = {plan(2 * sent), plan(2 * sent + 1)};
    preparePairs(plans);
    weave(plans);
    const int bands = (settings.outputLines + convertBand - 1) / convertBand;
    workers.run(bands, [&](int band) {
        float fieldMode = 1.0f;
        Convert converter(settings.width, settings.outputLines, 1, &fieldMode);
        converter.source = woven.data();
        converter.inputLines = settings.inputLines;
        converter.destination = output.data();
        converter.ConvertLines(band * convertBand, (band + 1) * convertBand);
    });
    ++sent;
    return sink(output.data());
}

FieldRateConverter::FieldRateConverter(const FieldRateSettings& settings, Sink sink)
    : state_(std::make_unique<State>(settings, std::move(sink)))
{}

FieldRateConverter::~FieldRateConverter() = default;

int FieldRateConverter::push(const void* frame)
{
    FrameBytes bytes;
    bytes.packed = static_cast<const uint8_t*>(frame);
    return state_->push(bytes);
}

int FieldRateConverter::pushPlanes(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr)
{
    FrameBytes bytes;
    bytes.luma = luma;
    bytes.cb = cb;
    bytes.cr = cr;
    return state_->push(bytes);
}

int FieldRateConverter::finish()
{
    State& s = *state_;
    if (s.received == 0)
        return 1;
    s.finishing = true;
    while (s.sent < s.total())
        if (!s.emit())
            return 0;
    return 1;
}

int64_t FieldRateConverter::framesIn() const { return state_->received; }
int64_t FieldRateConverter::framesOut() const { return state_->sent; }

int FieldRateConverter::usable(const FieldRateSettings& s)
{
    if (s.width < 32 || s.inputLines < 32 || s.inputLines % 2 || s.outputLines < 2 || s.threads < 1 ||
        s.inputRate.num <= 0 || s.inputRate.den <= 0 || s.outputRate.num <= 0 || s.outputRate.den <= 0)
        return 0;
    // Field instants are worked out as field number times num, which must
    // stay far from overflowing.
    int64_t num = 0, den = 0;
    fieldStep(s, num, den);
    return num < (int64_t(1) << 31) && den < (int64_t(1) << 31);
}
