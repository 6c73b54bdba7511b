// The parameter list and the frame sizes of the packings.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "platform/dmParams.h"

TEST(DmParams, FrameSizeByPacking)
{
    struct Case {
        int width, height, packing;
        size_t size;
    };
    std::vector<Case> cases = {
        Case{720, 576, 1008, 829440},
        Case{720, 486, 1008, 699840},
        Case{180, 121, 1000, 65340},
        // Unknown packings and empty sizes have none.
        Case{720, 576, 0, 0},
        Case{720, 576, 1012, 0},
        Case{0, 576, 1008, 0},
        Case{720, -1, 1008, 0},
        // The largest size an int holds, and sizes past it.
        Case{INT_MAX, 1, 1005, INT_MAX},
        Case{65536, 32768, 1008, 0},
        Case{INT_MAX, INT_MAX, 11001, 0},
    };
    // Bytes of a 10 x 10 frame in each of the other packings.
    const int tenByTen[][2] = {{1005, 100}, {2001, 400}, {3002, 150}, {11001, 600}, {11002, 400}, {1092, 200}};
    for (const auto& [packing, bytes] : tenByTen)
        cases.push_back(Case{10, 10, packing, size_t(bytes)});
    for (const Case& c : cases) {
        DMparams* p = nullptr;
        dmParamsCreate(&p);
        dmParamsSetInt(p, DM_IMAGE_WIDTH, c.width);
        dmParamsSetInt(p, DM_IMAGE_HEIGHT, c.height);
        dmParamsSetEnum(p, DM_IMAGE_PACKING, c.packing);
        EXPECT_EQ(dmImageFrameSize(p), c.size) << c.width << " x " << c.height << ", " << c.packing;
        dmParamsDestroy(p);
    }
}
