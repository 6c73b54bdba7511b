// The device framework: Open/Close driving the four hooks, the storage
// interface's neutral defaults, and the assertion stops.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/assertions.h"
#include "device/vDevice.h"
#include "device/vStorageDevice.h"

namespace {

using Calls = std::vector<std::string>;

// A device whose hooks log their calls, as the hook's initials and the mode
// the device held while it ran ("OW:w" is OpenForWriting in mode "w"), and
// return chosen results.
class ProbeDevice : public vDevice {
public:
    int openResult = 1, closeResult = 1;
    Calls calls;

    int OpenForReading() override { return hook("OR", openResult); }
    int OpenForWriting() override { return hook("OW", openResult); }
    int CloseForReading() override { return hook("CR", closeResult); }
    int CloseForWriting() override { return hook("CW", closeResult); }

private:
    int hook(const char* name, int result)
    {
        calls.push_back(std::string(name) + ":" + Mode());
        return result;
    }
};

TEST(DeviceOpenClose, StateTable)
{
    // From the state `from`, Open(`mode`) (or Close() when mode is null) with
    // hooks returning openResult / closeResult; then the result, the hooks
    // called and the state reached.
    struct Case {
        const char* from;
        const char* mode;
        int openResult, closeResult, result;
        Calls calls;
        const char* to;
    };
    for (const Case& c : {
             Case{"", "r", 7, 1, 7, {"OR:r"}, "r"},  // the hook's own result is passed on
             Case{"", "w", 1, 1, 1, {"OW:w"}, "w"},
             Case{"", "r", 0, 1, 0, {"OR:r"}, ""},
             Case{"", "w", 0, 1, 0, {"OW:w"}, ""},
             Case{"", "", 1, 1, 1, {}, ""},
             Case{"", "rw", 1, 1, 0, {}, ""},
             Case{"r", "r", 1, 1, 1, {}, "r"},
             Case{"w", "w", 1, 1, 1, {}, "w"},
             Case{"r", "w", 1, 1, 1, {"CR:r", "OW:w"}, "w"},
             Case{"w", "r", 1, 1, 1, {"CW:w", "OR:r"}, "r"},
             Case{"w", "r", 1, 0, 1, {"CW:w", "OR:r"}, "r"},  // a failing implicit close does not stop it
             Case{"w", "r", 0, 0, 0, {"CW:w", "OR:r"}, ""},
             Case{"r", "", 1, 1, 0, {"CR:r"}, ""},
             Case{"w", "x", 1, 1, 0, {"CW:w"}, ""},
             Case{"", nullptr, 1, 1, 1, {}, ""},
             Case{"r", nullptr, 1, 1, 1, {"CR:r"}, ""},
             Case{"w", nullptr, 1, 1, 1, {"CW:w"}, ""},
             Case{"r", nullptr, 1, 0, 0, {"CR:r"}, "r"},  // a failing close keeps it open
             Case{"w", nullptr, 1, 0, 0, {"CW:w"}, "w"},
         }) {
        SCOPED_TRACE(std::string(c.from) + " -> " + (c.mode ? c.mode : "Close"));
        ProbeDevice d;
        ASSERT_EQ(d.Open(c.from), 1);
        d.calls.clear();
        d.openResult = c.openResult;
        d.closeResult = c.closeResult;
        EXPECT_EQ(c.mode ? d.Open(c.mode) : d.Close(), c.result);
        EXPECT_EQ(d.calls, c.calls);
        EXPECT_STREQ(d.Mode(), c.to);
        EXPECT_EQ(d.IsInUse(), *c.to != '\0');
    }
}

TEST(DeviceOpenClose, FailedCloseIsRetried)
{
    ProbeDevice d;
    ASSERT_EQ(d.Open("w"), 1);
    d.closeResult = 0;
    EXPECT_EQ(d.Close(), 0);
    d.closeResult = 1;
    EXPECT_EQ(d.Close(), 1);
    EXPECT_EQ(d.calls, (Calls{"OW:w", "CW:w", "CW:w"}));
    EXPECT_EQ(d.IsInUse(), 0);
}

TEST(DeviceDefaults, BaseAndStorageDefaultsAreNeutral)
{
    vDevice d;
    unsigned long long ust = 0, msc = 5;
    EXPECT_EQ(d.GetUSTMSCPair(ust, msc), 0);
    EXPECT_EQ(ust, ~0ULL);
    EXPECT_EQ(msc, ~0ULL);
    EXPECT_EQ(d.Open("r"), 0);

    vStorageDevice s;
    for (int unknown :
         {s.GetWidth(), s.GetHeight(), s.GetNumFrames(), s.GetImageFrameLenght(), s.GetAudioFrameLenght()})
        EXPECT_EQ(unknown, -1);
    EXPECT_STREQ(s.GetName().c_str(), "");
    int i = 42;
    double r = 4.5;
    char buf[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (int zero :
         {s.GetImageFormat(), s.SetName("x"), s.SetSize(720, 576), s.GetInterlacing(i), s.GetImageSize(0, i),
          s.GetImageRate(r), s.GetImage(0, buf, 8), s.GetImagesBlock(0, 0, 8, buf), s.PutImage(0, buf, 8), s.Open("w")})
        EXPECT_EQ(zero, 0);
    EXPECT_EQ(i, 42);  // outputs left alone
    EXPECT_EQ(r, 4.5);
    EXPECT_EQ(buf[0], 1);
}

TEST(AssertionsDeathTest, NonZeroValuePassesZeroStops)
{
    ASSERT_NZERO(5, "vXfsFile", 12);
    EXPECT_DEATH(ASSERT_NZERO(0, "vXfsFile", 12), "^Assertion failed: file vXfsFile, line 12\n$");
    EXPECT_DEATH(ASSERT_ZERO("vXfsFile", 488), "^Assertion failed: file vXfsFile, line 488\n$");
}

}  // namespace
