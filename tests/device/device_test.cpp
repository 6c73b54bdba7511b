// The device framework: Open/Close driving the four hooks, the storage
// interface's neutral defaults, and the assertion stops.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/assertions.h"
#include "device/vDevice.h"
#include "device/vStorageDevice.h"

namespace {

// A device whose hooks log their calls and return chosen results. Each hook
// also records whether the device counted as in use while it ran.
class ProbeDevice : public vDevice {
public:
    int openReadResult = 1, openWriteResult = 1;
    int closeReadResult = 1, closeWriteResult = 1;
    std::vector<std::string> calls;
    std::vector<int> inUseDuringHook;

    int OpenForReading() override { return hook("OpenForReading", openReadResult); }
    int OpenForWriting() override { return hook("OpenForWriting", openWriteResult); }
    int CloseForReading() override { return hook("CloseForReading", closeReadResult); }
    int CloseForWriting() override { return hook("CloseForWriting", closeWriteResult); }

private:
    int hook(const char* name, int result)
    {
        calls.emplace_back(name);
        inUseDuringHook.push_back(IsInUse());
        return result;
    }
};

using Calls = std::vector<std::string>;

TEST(DeviceOpenClose, NewDeviceIsClosedAndClosingItCallsNoHook)
{
    ProbeDevice d;
    EXPECT_EQ(d.IsInUse(), 0);
    EXPECT_STREQ(d.Mode(), "");
    EXPECT_EQ(d.Close(), 1);
    EXPECT_TRUE(d.calls.empty());
}

TEST(DeviceOpenClose, OpenRecordsTheModeBeforeTheHookRuns)
{
    ProbeDevice d;
    d.openReadResult = 7;
    EXPECT_EQ(d.Open("r"), 7);  // the hook's own non-zero result is passed on
    EXPECT_EQ(d.inUseDuringHook, std::vector<int>{1});
    EXPECT_STREQ(d.Mode(), "r");

    ProbeDevice w;
    EXPECT_EQ(w.Open("w"), 1);
    EXPECT_EQ(w.calls, Calls{"OpenForWriting"});
    EXPECT_STREQ(w.Mode(), "w");
}

TEST(DeviceOpenClose, FailingOpenHookLeavesTheDeviceClosed)
{
    for (const char* mode : {"r", "w"}) {
        ProbeDevice d;
        d.openReadResult = d.openWriteResult = 0;
        EXPECT_EQ(d.Open(mode), 0) << mode;
        EXPECT_EQ(d.IsInUse(), 0) << mode;
        EXPECT_EQ(d.calls.size(), 1u) << mode;
    }
}

TEST(DeviceOpenClose, ReopeningInTheSameModeCallsNoHook)
{
    ProbeDevice d;
    ASSERT_EQ(d.Open("r"), 1);
    EXPECT_EQ(d.Open("r"), 1);
    EXPECT_EQ(d.calls, Calls{"OpenForReading"});
}

TEST(DeviceOpenClose, ModeSwitchClosesFirst)
{
    ProbeDevice d;
    ASSERT_EQ(d.Open("r"), 1);
    EXPECT_EQ(d.Open("w"), 1);
    EXPECT_EQ(d.calls, (Calls{"OpenForReading", "CloseForReading", "OpenForWriting"}));
    EXPECT_STREQ(d.Mode(), "w");

    EXPECT_EQ(d.Open("r"), 1);
    EXPECT_EQ(d.calls.back(), "OpenForReading");
    EXPECT_EQ(d.calls[d.calls.size() - 2], "CloseForWriting");
}

TEST(DeviceOpenClose, ModeSwitchGoesOnWhenTheImplicitCloseFails)
{
    ProbeDevice d;
    ASSERT_EQ(d.Open("w"), 1);
    d.closeWriteResult = 0;
    d.openReadResult = 0;
    EXPECT_EQ(d.Open("r"), 0);
    EXPECT_EQ(d.calls, (Calls{"OpenForWriting", "CloseForWriting", "OpenForReading"}));
    EXPECT_EQ(d.IsInUse(), 0);  // the new open failed: closed, whatever the close said
}

TEST(DeviceOpenClose, EmptyAndUnknownModes)
{
    ProbeDevice closed;
    EXPECT_EQ(closed.Open(""), 1);
    EXPECT_EQ(closed.IsInUse(), 0);
    EXPECT_EQ(closed.Open("rw"), 0);
    EXPECT_EQ(closed.IsInUse(), 0);
    EXPECT_TRUE(closed.calls.empty());

    ProbeDevice open;
    ASSERT_EQ(open.Open("r"), 1);
    EXPECT_EQ(open.Open(""), 0);  // closes, then no hook for the empty mode
    EXPECT_EQ(open.calls, (Calls{"OpenForReading", "CloseForReading"}));
    EXPECT_EQ(open.IsInUse(), 0);

    ProbeDevice other;
    ASSERT_EQ(other.Open("w"), 1);
    EXPECT_EQ(other.Open("x"), 0);
    EXPECT_EQ(other.calls, (Calls{"OpenForWriting", "CloseForWriting"}));
    EXPECT_EQ(other.IsInUse(), 0);
}

TEST(DeviceOpenClose, FailingCloseKeepsTheDeviceOpenAndIsRetried)
{
    ProbeDevice d;
    ASSERT_EQ(d.Open("w"), 1);
    d.closeWriteResult = 0;
    EXPECT_EQ(d.Close(), 0);
    EXPECT_NE(d.IsInUse(), 0);
    EXPECT_STREQ(d.Mode(), "w");
    d.closeWriteResult = 1;
    EXPECT_EQ(d.Close(), 1);
    EXPECT_EQ(d.calls, (Calls{"OpenForWriting", "CloseForWriting", "CloseForWriting"}));
    EXPECT_EQ(d.IsInUse(), 0);

    ProbeDevice r;
    ASSERT_EQ(r.Open("r"), 1);
    r.closeReadResult = 0;
    EXPECT_EQ(r.Close(), 0);
    EXPECT_STREQ(r.Mode(), "r");
}

TEST(DeviceDefaults, BaseDeviceHooksFailAndTimestampsAreUnknown)
{
    vDevice d;
    EXPECT_EQ(d.Open("r"), 0);
    EXPECT_EQ(d.Open("w"), 0);
    EXPECT_EQ(d.IsInUse(), 0);
    EXPECT_EQ(d.IOCtl(1, nullptr), 0);
    EXPECT_EQ(d.Flush(), 0);
    EXPECT_EQ(d.Pause(), 0);
    EXPECT_EQ(d.Resume(), 0);
    unsigned long long ust = 0, msc = 5;
    EXPECT_EQ(d.GetUSTMSCPair(ust, msc), 0);
    EXPECT_EQ(ust, ~0ULL);
    EXPECT_EQ(msc, ~0ULL);
}

TEST(DeviceDefaults, StorageDefaultsAreNeutralAndLeaveOutputsAlone)
{
    vStorageDevice s;
    EXPECT_EQ(s.GetWidth(), -1);
    EXPECT_EQ(s.GetHeight(), -1);
    EXPECT_EQ(s.GetNumFrames(), -1);
    EXPECT_EQ(s.GetImageFrameLenght(), -1);
    EXPECT_EQ(s.GetAudioFrameLenght(), -1);
    EXPECT_STREQ(s.GetName().c_str(), "");
    EXPECT_EQ(s.GetImageFormat(), 0);

    EXPECT_EQ(s.SetName("x"), 0);
    EXPECT_EQ(s.SetSize(720, 576), 0);
    EXPECT_EQ(s.SetImageLenght(3), 0);
    EXPECT_EQ(s.SetImageFormat(1008), 0);
    EXPECT_EQ(s.SetInterlacing(1), 0);
    EXPECT_EQ(s.SetAudioRate(48000.0), 0);
    EXPECT_EQ(s.SetImageRate(25.0), 0);
    EXPECT_EQ(s.SetAudioFormat(1), 0);
    EXPECT_EQ(s.UseImageTrack(), 0);
    EXPECT_EQ(s.UseAudioTrack(1), 0);

    int i = 42;
    double r = 4.5;
    EXPECT_EQ(s.GetInterlacing(i), 0);
    EXPECT_EQ(s.GetAudioFrameSize(i), 0);
    EXPECT_EQ(s.GetImageSize(0, i), 0);
    EXPECT_EQ(i, 42);
    EXPECT_EQ(s.GetAudioRate(r), 0);
    EXPECT_EQ(s.GetImageRate(r), 0);
    EXPECT_EQ(r, 4.5);

    char buf[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(s.PutImage(0, buf, 8), 0);
    EXPECT_EQ(s.PutImageField(0, 1, buf, 8), 0);
    EXPECT_EQ(s.PutAudioFrame(0, buf), 0);
    EXPECT_EQ(s.GetImage(0, buf, 8), 0);
    EXPECT_EQ(s.GetImagesBlock(0, 0, 8, buf), 0);
    EXPECT_EQ(s.GetAudioFrame(0, buf, 8), 0);
    EXPECT_EQ(buf[0], 1);
    EXPECT_EQ(s.PutDummyImage(0), 0);
    EXPECT_EQ(s.DeleteImage(0), 0);
    EXPECT_EQ(s.InsertImage(0), 0);
    EXPECT_EQ(s.Open("r"), 0);
}

TEST(DeviceDefaults, ConfigIsPolymorphic)
{
    vDeviceConfig* c = new vDeviceConfig;
    delete c;  // through the virtual destructor; nothing else to it
    SUCCEED();
}

TEST(AssertionsDeathTest, NonZeroValuePassesZeroStops)
{
    ASSERT_NZERO(5, "vXfsFile", 12);
    EXPECT_DEATH(ASSERT_NZERO(0, "vXfsFile", 12), "^Assertion failed: file vXfsFile, line 12\n$");
    EXPECT_DEATH(ASSERT_ZERO("vXfsFile", 488), "^Assertion failed: file vXfsFile, line 488\n$");
}

}  // namespace
