// The parameter list and the frame sizes of the packings.
#include <gtest/gtest.h>

#include <climits>

#include "platform/dmParams.h"

namespace {

size_t FrameSize(int width, int height, int packing)
{
    DMparams* p = nullptr;
    dmParamsCreate(&p);
    dmParamsSetInt(p, DM_IMAGE_WIDTH, width);
    dmParamsSetInt(p, DM_IMAGE_HEIGHT, height);
    dmParamsSetEnum(p, DM_IMAGE_PACKING, packing);
    const size_t size = dmImageFrameSize(p);
    dmParamsDestroy(p);
    return size;
}

}  // namespace

TEST(DmParams, ValuesByKindAndAbsentKeys)
{
    DMparams* p = nullptr;
    ASSERT_EQ(dmParamsCreate(&p), DM_SUCCESS);
    EXPECT_EQ(dmParamsGetInt(p, DM_IMAGE_WIDTH), 0);
    EXPECT_EQ(dmParamsGetEnum(p, DM_IMAGE_PACKING), 0);
    EXPECT_EQ(dmParamsGetFloat(p, DM_IMAGE_RATE), 0.0);
    dmParamsSetInt(p, DM_IMAGE_WIDTH, -720);
    dmParamsSetEnum(p, DM_IMAGE_INTERLACING, 2);
    dmParamsSetFloat(p, DM_IMAGE_RATE, 29.97);
    EXPECT_EQ(dmParamsGetInt(p, DM_IMAGE_WIDTH), -720);
    EXPECT_EQ(dmParamsGetEnum(p, DM_IMAGE_INTERLACING), 2);
    EXPECT_EQ(dmParamsGetFloat(p, DM_IMAGE_RATE), 29.97);

    DMparams* q = nullptr;
    ASSERT_EQ(dmParamsCreate(&q), DM_SUCCESS);
    dmParamsSetInt(q, DM_IMAGE_HEIGHT, 486);
    dmParamsSetInt(q, DM_IMAGE_WIDTH, 1);
    ASSERT_EQ(dmParamsCopyAllElems(p, q), DM_SUCCESS);
    dmParamsDestroy(p);
    EXPECT_EQ(dmParamsGetInt(q, DM_IMAGE_WIDTH), -720);  // overwritten
    EXPECT_EQ(dmParamsGetInt(q, DM_IMAGE_HEIGHT), 486);  // kept
    EXPECT_EQ(dmParamsGetFloat(q, DM_IMAGE_RATE), 29.97);
    dmParamsDestroy(q);
}

TEST(DmParams, FrameSizeByPacking)
{
    EXPECT_EQ(FrameSize(720, 576, 1008), 829440u);
    EXPECT_EQ(FrameSize(720, 486, 1008), 699840u);
    EXPECT_EQ(FrameSize(180, 121, 1000), 65340u);
    EXPECT_EQ(FrameSize(10, 10, 1005), 100u);
    EXPECT_EQ(FrameSize(10, 10, 2001), 400u);
    EXPECT_EQ(FrameSize(10, 10, 3002), 150u);
    EXPECT_EQ(FrameSize(10, 10, 11001), 600u);
    EXPECT_EQ(FrameSize(10, 10, 11002), 400u);
    EXPECT_EQ(FrameSize(10, 10, 1092), 200u);

    EXPECT_EQ(FrameSize(720, 576, 0), 0u);
    EXPECT_EQ(FrameSize(720, 576, 1012), 0u);
    EXPECT_EQ(FrameSize(0, 576, 1008), 0u);
    EXPECT_EQ(FrameSize(720, -1, 1008), 0u);
    // The largest sizes an int holds, and one byte more.
    EXPECT_EQ(FrameSize(INT_MAX, 1, 1005), static_cast<size_t>(INT_MAX));
    EXPECT_EQ(FrameSize(65536, 32768, 1008), 0u);
    EXPECT_EQ(FrameSize(INT_MAX, INT_MAX, 11001), 0u);
}
